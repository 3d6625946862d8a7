// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#ifndef VASK_HARDWARE_DETECTION_H
#define VASK_HARDWARE_DETECTION_H

#include "vask_shared_info.h"

// What the kernel tells about the machine. Tests point it at other files.
struct hardware_file_paths {
    const char* cpu;
    const char* pci_devices;
};
extern hardware_file_paths hardware_files;

vask_cpu_type detect_cpu(const char* path);
vask_gpu_type detect_gpu(const char* path);

#endif
