// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

// The files that the kernel provides, and others in their place.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/mount.h>

#include <functional>
#include <sstream>

#include "support/file_scratch.h"
#include "support/forked_process.h"
#include "support/private_mounts.h"
#include "support/shared_objects.h"
#include "vask_object.h"

using namespace vask_test;
using testing::ElementsAre;

namespace {

constexpr int not_permitted = 77;

class hardware_files_of_the_kernel : public shared_info_test {
protected:
    /** Runs a function where another file lies in a place. Its result, or not_permitted. */
    static int run_with(const std::string& text, const char* place,
                        const std::function<int()>& work) {
        const scratch_directory scratch;
        std::ofstream(scratch / "file") << text;
        forked_process process([&] {
            if (!enter_private_mounts() ||
                mount((scratch / "file").c_str(), place, nullptr, MS_BIND, nullptr) != 0) {
                return not_permitted;
            }
            return work();
        });
        return process.wait_for_end();
    }

    /** What the text of the first "model name" line makes of this machine. */
    static int expected_cpu() {
        std::ifstream file("/proc/cpuinfo");
        for (std::string line; std::getline(file, line);) {
            if (line.rfind("model name", 0) == 0) {
                if (line.find("Intel(R) Atom(TM) CPU Z") != std::string::npos) {
                    return 3;
                }
                return line.find("Intel(R) Core(TM)2 Duo CPU") != std::string::npos ? 5 : 1;
            }
        }
        return 1;
    }
};

}  // namespace

TEST_F(hardware_files_of_the_kernel, Tell_the_processor_of_this_machine) {
    EXPECT_EQ(vask_object::get_vask_cpu_type(false), expected_cpu());
    EXPECT_EQ(record.int_at(4), expected_cpu());
}

TEST_F(hardware_files_of_the_kernel, Are_read_for_the_processor) {
    const int result =
        run_with("processor\t: 0\nmodel name\t: Intel(R) Atom(TM) CPU Z530\n", "/proc/cpuinfo",
                 [] { return static_cast<int>(vask_object::get_vask_cpu_type(false)); });
    if (result == not_permitted) {
        GTEST_SKIP() << "no private mounts";
    }
    EXPECT_EQ(result, 3);
}

TEST_F(hardware_files_of_the_kernel, Are_read_for_the_graphics_device) {
    if (!exists("/proc/bus/pci/devices")) {
        GTEST_SKIP() << "no list of devices";
    }
    const int result = run_with("0000\t80868100\n0010\t80862a42\n", "/proc/bus/pci/devices", [] {
        return static_cast<int>(vask_object::get_vask_gpu_type(false));
    });
    if (result == not_permitted) {
        GTEST_SKIP() << "no private mounts";
    }
    EXPECT_EQ(result, 5);
}
