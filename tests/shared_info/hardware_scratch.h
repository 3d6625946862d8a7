// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#ifndef VASK_TEST_HARDWARE_SCRATCH_H
#define VASK_TEST_HARDWARE_SCRATCH_H

#include <fstream>
#include <string>

#include "shared_info/hardware_detection.h"
#include "support/file_scratch.h"

/** Files with texts of our own take the place of the kernel's. Missing until they are written. */
class hardware_scratch {
public:
    hardware_scratch() : m_kernel_files(hardware_files) {
        hardware_files = {m_cpu.c_str(), m_pci_devices.c_str()};
    }
    ~hardware_scratch() { hardware_files = m_kernel_files; }
    hardware_scratch(const hardware_scratch&) = delete;
    hardware_scratch& operator=(const hardware_scratch&) = delete;

    const std::string& cpu() const { return m_cpu; }
    const std::string& pci_devices() const { return m_pci_devices; }
    void write_cpu(const std::string& text) const { write(m_cpu, text); }
    void write_pci_devices(const std::string& text) const { write(m_pci_devices, text); }

private:
    static void write(const std::string& path, const std::string& text) {
        std::ofstream(path, std::ios::binary) << text;
    }

    const scratch_directory m_scratch;
    const std::string m_cpu = m_scratch / "cpuinfo";
    const std::string m_pci_devices = m_scratch / "devices";
    const hardware_file_paths m_kernel_files;
};

#endif
