// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <string>

#include "shared_info/hardware_detection.h"
#include "target.h"

using vask_fuzz::input;
using vask_fuzz::require;

namespace {

int file = -1;
std::string path;

bool contains(const std::string& text, const char* part) {
    return text.find(part) != std::string::npos;
}

// Where a number has fewer bits, a negative one is the same as its complement.
bool has_device(std::string text, const char* number) {
    std::transform(text.begin(), text.end(), text.begin(),
                   [](unsigned char c) { return std::tolower(c); });
    return contains(text, number) || contains(text, "-");
}

}  // namespace

void set_up_target() {
    vask_fuzz::output_of_library::discard();
    file = memfd_create("detected", MFD_CLOEXEC);
    path = "/proc/self/fd/" + std::to_string(file);
}

void run_target(input& input) {
    const std::string text = input.rest();
    require(ftruncate(file, 0) == 0, "the file can be emptied");
    require(pwrite(file, text.data(), text.size(), 0) == static_cast<ssize_t>(text.size()),
            "the file can be written");

    const vask_cpu_type cpu = detect_cpu(path.c_str());
    require(cpu == VASK_CPU_UNKNOWN || contains(text, "model name"),
            "a processor is known by its model's name");
    require((cpu != VASK_CPU_ATOM_Z || contains(text, "Intel(R) Atom(TM) CPU Z")) &&
                (cpu != VASK_CPU_CORE_2_DUO || contains(text, "Intel(R) Core(TM)2 Duo CPU")),
            "a processor has its name in the file");
    require(cpu != VASK_CPU_ERROR, "a file that is there is no error");

    const vask_gpu_type gpu = detect_gpu(path.c_str());
    require(gpu == VASK_GPU_UNKNOWN || gpu == VASK_GPU_GMA_500 || gpu == VASK_GPU_GMA_4500MHD ||
                gpu == VASK_GPU_NVIDIA,
            "a graphics unit is one of three or unknown");
    require((gpu != VASK_GPU_GMA_500 || has_device(text, "80868108")) &&
                (gpu != VASK_GPU_GMA_4500MHD || has_device(text, "80862a42")) &&
                (gpu != VASK_GPU_NVIDIA || has_device(text, "10de06fa")),
            "a graphics unit has its number in the file");
}
