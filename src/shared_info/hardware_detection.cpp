// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include "shared_info/hardware_detection.h"

#include <stdio.h>
#include <stdlib.h>

#include <string>
#include <vector>

#include "foundation/log_place.h"
#include "shared_info/source_unit.h"
#include "vask_object.h"

namespace {

constexpr std::size_t longest_line = 1000;

// A text file, line by line.
class line_reader {
public:
    // Tells success by is_open(), and logs when it cannot be opened.
    explicit line_reader(const char* path) : m_file(fopen(path, "re")) {
        if (m_file == nullptr) {
            vask_object::vask_p("vask", VASK_P_ERR, VASK_AT("Failed to open: %s"), path);
        }
    }
    ~line_reader() {
        if (m_file != nullptr) {
            fclose(m_file);
        }
    }

    line_reader(const line_reader&) = delete;
    line_reader& operator=(const line_reader&) = delete;

    bool is_open() const { return m_file != nullptr; }

    // The next line, without its end; what is longer than a line may be is dropped.
    bool read(std::string& line) {
        line.clear();
        int c = getc_unlocked(m_file);
        const bool is_line = c != EOF;
        for (; c != EOF && c != '\n'; c = getc_unlocked(m_file)) {
            if (line.size() < longest_line) {
                line.push_back(static_cast<char>(c));
            }
        }
        return is_line;
    }

private:
    FILE* const m_file;
};

bool begins_with(const std::string& text, const std::string& start) {
    return text.compare(0, start.size(), start) == 0;
}

bool contains(const std::string& text, const char* part) {
    return text.find(part) != std::string::npos;
}

}  // namespace

hardware_file_paths hardware_files = {"/proc/cpuinfo", "/proc/bus/pci/devices"};

vask_cpu_type detect_cpu(const char* path) {
    line_reader file(path);
    if (!file.is_open()) {
        return VASK_CPU_ERROR;
    }
    std::string line;
    while (file.read(line)) {
        if (!begins_with(line, "model name")) {
            continue;
        }
        if (contains(line, "Intel(R) Atom(TM) CPU Z")) {
            return VASK_CPU_ATOM_Z;
        }
        return contains(line, "Intel(R) Core(TM)2 Duo CPU") ? VASK_CPU_CORE_2_DUO
                                                            : VASK_CPU_UNKNOWN;
    }
    return VASK_CPU_UNKNOWN;
}

vask_gpu_type detect_gpu(const char* path) {
    line_reader file(path);
    if (!file.is_open()) {
        return VASK_GPU_ERROR;
    }
    std::string line;
    while (file.read(line)) {
        const std::vector<std::string> pieces = vask_object::split(line.c_str(), ' ', "\r\n\t");
        if (pieces.size() < 2) {
            continue;
        }
        // Vendor in the upper 16 bits, device in the lower.
        switch (strtoul(pieces[1].c_str(), nullptr, 16)) {
            case 0x80868108:
                return VASK_GPU_GMA_500;
            case 0x80862a42:
                return VASK_GPU_GMA_4500MHD;
            case 0x10de06fa:
                return VASK_GPU_NVIDIA;
            default:
                break;
        }
    }
    return VASK_GPU_UNKNOWN;
}
