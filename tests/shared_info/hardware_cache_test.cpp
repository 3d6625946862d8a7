// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

// The record keeps what was detected, for all processes.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <fstream>
#include <iterator>
#include <string>
#include <thread>
#include <vector>

#include "shared_info/hardware_scratch.h"
#include "support/forked_process.h"
#include "support/shared_objects.h"
#include "vask_object.h"

using namespace vask_test;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

constexpr size_t cpu_offset = 4;
constexpr size_t gpu_offset = 8;

constexpr char atom_z[] = "model name\t: Intel(R) Atom(TM) CPU Z530\n";
constexpr char core_2_duo[] = "model name\t: Intel(R) Core(TM)2 Duo CPU\n";
constexpr char gma_500[] = "0010\t80868108\n";
constexpr char gma_4500[] = "0010\t80862a42\n";
constexpr char nvidia[] = "0010\t10de06fa\n";

class hardware_cache : public shared_info_test {
protected:
    const hardware_scratch files;
};

}  // namespace

TEST_F(hardware_cache, Is_empty_in_a_new_record) {
    vask_object::get_monitor_rotation();
    EXPECT_EQ(record.int_at(cpu_offset), 0);
    EXPECT_EQ(record.int_at(gpu_offset), 0);
}

TEST_F(hardware_cache, Is_filled_by_the_first_question) {
    files.write_cpu(atom_z);
    files.write_pci_devices(nvidia);
    EXPECT_EQ(vask_object::get_vask_cpu_type(false), 3);
    EXPECT_EQ(record.int_at(cpu_offset), 3);
    EXPECT_EQ(record.int_at(gpu_offset), 0);
    EXPECT_EQ(vask_object::get_vask_gpu_type(false), 6);
    EXPECT_EQ(record.int_at(cpu_offset), 3);
    EXPECT_EQ(record.int_at(gpu_offset), 6);
    EXPECT_EQ(record.int_at(0), 5);
    EXPECT_EQ(record.sem_value(), 1);
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(hardware_cache, Is_open_to_others_while_the_files_are_read) {
    const std::string texts[] = {atom_z, nvidia};
    const std::string paths[] = {files.cpu(), files.pci_devices()};
    std::vector<int> free_while_reading;
    for (const std::string& path : paths) {
        ASSERT_EQ(mkfifo(path.c_str(), 0600), 0);
    }
    std::thread kernel([&] {
        for (size_t i = 0; i < std::size(paths); ++i) {
            std::ofstream file(paths[i]);  // waits for the reader
            free_while_reading.push_back(record.sem_value());
            file << texts[i];
        }
    });
    EXPECT_EQ(vask_object::get_vask_cpu_type(false), 3);
    EXPECT_EQ(vask_object::get_vask_gpu_type(false), 6);
    kernel.join();
    EXPECT_THAT(free_while_reading, ElementsAre(1, 1));
}

TEST_F(hardware_cache, Spares_every_process_the_second_detection) {
    files.write_cpu(atom_z);
    files.write_pci_devices(gma_500);
    vask_object::get_vask_cpu_type(false);
    vask_object::get_vask_gpu_type(false);
    files.write_cpu(core_2_duo);
    files.write_pci_devices(gma_4500);
    EXPECT_EQ(vask_object::get_vask_cpu_type(false), 3);
    EXPECT_EQ(vask_object::get_vask_gpu_type(false), 3);
    forked_process other([] {
        own_shared_info own;
        return 10 * own.get_vask_cpu_type(false) + own.get_vask_gpu_type(false);
    });
    EXPECT_EQ(other.wait_for_end(), 33);
}

TEST_F(hardware_cache, Is_renewed_by_force) {
    files.write_cpu(atom_z);
    files.write_pci_devices(gma_500);
    vask_object::get_vask_cpu_type(false);
    vask_object::get_vask_gpu_type(false);
    files.write_cpu(core_2_duo);
    files.write_pci_devices(gma_4500);
    EXPECT_EQ(vask_object::get_vask_cpu_type(true), 5);
    EXPECT_EQ(vask_object::get_vask_gpu_type(true), 5);
    EXPECT_EQ(record.int_at(cpu_offset), 5);
    EXPECT_EQ(record.int_at(gpu_offset), 5);
    EXPECT_EQ(vask_object::get_vask_cpu_type(false), 5);
    EXPECT_EQ(vask_object::get_vask_gpu_type(false), 5);
}

TEST_F(hardware_cache, Keeps_that_nothing_is_known) {
    files.write_cpu("");
    files.write_pci_devices("");
    EXPECT_EQ(vask_object::get_vask_cpu_type(false), 1);
    EXPECT_EQ(vask_object::get_vask_gpu_type(false), 1);
    files.write_cpu(atom_z);
    files.write_pci_devices(gma_500);
    EXPECT_EQ(vask_object::get_vask_cpu_type(false), 1);
    EXPECT_EQ(vask_object::get_vask_gpu_type(false), 1);
    EXPECT_EQ(record.int_at(cpu_offset), 1);
    EXPECT_EQ(record.int_at(gpu_offset), 1);
}

TEST_F(hardware_cache, Keeps_that_a_file_could_not_be_read) {
    EXPECT_EQ(vask_object::get_vask_cpu_type(false), 2);
    EXPECT_EQ(vask_object::get_vask_gpu_type(false), 2);
    files.write_cpu(atom_z);
    files.write_pci_devices(gma_500);
    EXPECT_EQ(vask_object::get_vask_cpu_type(false), 2);
    EXPECT_EQ(vask_object::get_vask_gpu_type(false), 2);
    EXPECT_EQ(record.int_at(cpu_offset), 2);
    EXPECT_EQ(record.int_at(gpu_offset), 2);
    EXPECT_THAT(log.lines(), ElementsAre(error("Failed to open: " + files.cpu()),
                                         error("Failed to open: " + files.pci_devices())));
}

TEST_F(hardware_cache, Shows_what_others_have_written_as_it_is) {
    vask_object::get_monitor_rotation();
    for (const int number : {4, 7, -1}) {
        record.set_int_at(cpu_offset, number);
        record.set_int_at(gpu_offset, number);
        EXPECT_EQ(vask_object::get_vask_cpu_type(false), number);
        EXPECT_EQ(vask_object::get_vask_gpu_type(false), number);
    }
}

TEST_F(hardware_cache, Is_lost_with_the_record) {
    files.write_cpu(atom_z);
    EXPECT_EQ(vask_object::get_vask_cpu_type(false), 3);
    files.write_cpu(core_2_duo);
    vask_object::m_shared_info->unmap_shared_info(true);
    EXPECT_EQ(vask_object::get_vask_cpu_type(false), 5);
}
