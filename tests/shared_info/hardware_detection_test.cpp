// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <climits>

#include "shared_info/hardware_scratch.h"
#include "support/shared_objects.h"
#include "vask_object.h"

using namespace vask_test;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

constexpr char atom_z[] = "model name\t: Intel(R) Atom(TM) CPU Z530   @ 1.60GHz\n";
constexpr char atom_n[] = "model name\t: Intel(R) Atom(TM) CPU N270   @ 1.60GHz\n";
constexpr char core_2_duo[] = "model name\t: Intel(R) Core(TM)2 Duo CPU     P8600  @ 2.40GHz\n";
constexpr char other_cpu[] = "model name\t: Some Other CPU\n";

constexpr char host_bridge[] = "0000\t80868100\t0\t0\t0\n";
constexpr char gma_500[] = "0010\t80868108\t10\tdff00000\t1801\n";
constexpr char gma_4500[] = "0010\t80862a42\t10\tf0000004\t0\n";
constexpr char nvidia[] = "0300\t10de06fa\t10\tf0000004\t0\n";

class hardware_detection : public shared_info_test {
protected:
    int cpu_of(const std::string& text) {
        files.write_cpu(text);
        return info.get_vask_cpu_type_check();
    }

    int gpu_of(const std::string& text) {
        files.write_pci_devices(text);
        return info.get_vask_gpu_type_check();
    }

    const hardware_scratch files;
    own_shared_info info;
};

}  // namespace

TEST_F(hardware_detection, Leaves_the_record_alone) {
    EXPECT_EQ(cpu_of(atom_z), 3);
    EXPECT_EQ(gpu_of(gma_500), 3);
    EXPECT_FALSE(record.exists());
    EXPECT_FALSE(record.sem_exists());
}

TEST_F(hardware_detection, Cpu_is_an_error_where_the_file_cannot_be_opened) {
    EXPECT_EQ(info.get_vask_cpu_type_check(), 2);
    EXPECT_THAT(log.lines(), ElementsAre(error("Failed to open: " + files.cpu())));
}

TEST_F(hardware_detection, Cpu_is_told_by_its_model_name) {
    EXPECT_EQ(cpu_of(atom_z), 3);
    EXPECT_EQ(cpu_of(core_2_duo), 5);
    EXPECT_EQ(cpu_of(other_cpu), 1);
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(hardware_detection, Cpu_is_never_an_atom_n) {
    EXPECT_EQ(cpu_of(atom_n), 1);
}

TEST_F(hardware_detection, Cpu_is_found_below_other_lines) {
    EXPECT_EQ(cpu_of(std::string("processor\t: 0\nvendor_id\t: GenuineIntel\n\n") + atom_z +
                     "stepping\t: 2\n"),
              3);
}

TEST_F(hardware_detection, Cpu_is_told_by_the_first_model_name_alone) {
    EXPECT_EQ(cpu_of(std::string(other_cpu) + atom_z), 1);
    EXPECT_EQ(cpu_of(std::string(core_2_duo) + atom_z), 5);
    EXPECT_EQ(cpu_of(std::string(atom_z) + core_2_duo), 3);
}

TEST_F(hardware_detection, Cpu_of_two_kinds_at_once_is_an_atom) {
    EXPECT_EQ(cpu_of("model name\t: Intel(R) Core(TM)2 Duo CPU Intel(R) Atom(TM) CPU Z\n"), 3);
}

TEST_F(hardware_detection, Cpu_may_be_named_anywhere_in_the_line) {
    EXPECT_EQ(cpu_of("model nameIntel(R) Atom(TM) CPU Z"), 3);
    EXPECT_EQ(cpu_of("model name\t: Mobile Intel(R) Core(TM)2 Duo CPU\n"), 5);
}

TEST_F(hardware_detection, Cpu_is_told_only_by_a_line_that_begins_with_model_name) {
    EXPECT_EQ(cpu_of("the model name\t: Intel(R) Atom(TM) CPU Z530\n"), 1);
    EXPECT_EQ(cpu_of("Model name\t: Intel(R) Atom(TM) CPU Z530\n"), 1);
    EXPECT_EQ(cpu_of("model\t: Intel(R) Atom(TM) CPU Z530\n"), 1);
    EXPECT_EQ(cpu_of("model nam\n"), 1);
}

TEST_F(hardware_detection, Cpu_is_told_by_its_exact_name) {
    EXPECT_EQ(cpu_of("model name\t: intel(r) atom(tm) cpu z530\n"), 1);
    EXPECT_EQ(cpu_of("model name\t: Intel(R) Atom(TM) CPU  Z530\n"), 1);
    EXPECT_EQ(cpu_of("model name\t: Intel(R) Core(TM)2 Quad CPU\n"), 1);
}

TEST_F(hardware_detection, Cpu_of_an_empty_file_is_unknown) {
    EXPECT_EQ(cpu_of(""), 1);
    EXPECT_EQ(cpu_of("\n\n\n"), 1);
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(hardware_detection, Cpu_of_a_directory_is_unknown) {
    ASSERT_EQ(mkdir(files.cpu().c_str(), 0700), 0);
    EXPECT_EQ(info.get_vask_cpu_type_check(), 1);
}

TEST_F(hardware_detection, Cpu_is_found_without_a_line_end) {
    EXPECT_EQ(cpu_of("model name\t: Intel(R) Atom(TM) CPU Z530"), 3);
    EXPECT_EQ(cpu_of("model name\t: Intel(R) Atom(TM) CPU Z530\r\n"), 3);
}

TEST_F(hardware_detection, Cpu_is_found_below_a_huge_line) {
    const std::string huge(20'000'000, 'x');
    EXPECT_EQ(cpu_of("flags: " + huge + "\n" + atom_z), 3);
    EXPECT_EQ(cpu_of(huge), 1);
}

TEST_F(hardware_detection, Cpu_is_not_told_by_the_rest_of_a_huge_line) {
    EXPECT_EQ(cpu_of(std::string(1000, 'x') + atom_z), 1);
    EXPECT_EQ(cpu_of(std::string(999, 'x') + atom_z), 1);
    EXPECT_EQ(cpu_of(std::string(4096, 'x') + atom_z), 1);
}

TEST_F(hardware_detection, Cpu_is_told_by_the_first_1000_characters_of_a_line) {
    const std::string start = "model name";
    const std::string end = "Intel(R) Atom(TM) CPU Z";
    const std::string fits(1000 - start.size() - end.size(), ' ');
    EXPECT_EQ(cpu_of(start + fits + end + "530\n"), 3);
    EXPECT_EQ(cpu_of(start + fits + " " + end + "530\n"), 1);
}

TEST_F(hardware_detection, Cpu_is_found_among_bytes_that_are_no_text) {
    std::string all_bytes;
    for (int byte = 0; byte < 256; ++byte) {
        all_bytes += static_cast<char>(byte);
    }
    EXPECT_EQ(cpu_of("\xff\xfe\x80\xc3\x28\n" + all_bytes + "\n" + atom_z), 3);
    EXPECT_EQ(cpu_of("model name\xff\xc0\x80Intel(R) Atom(TM) CPU Z\xff\n"), 3);
    EXPECT_EQ(cpu_of(std::string("model name\0: Intel(R) Atom(TM) CPU Z\n", 36)), 3);
}

TEST_F(hardware_detection, Gpu_is_an_error_where_the_file_cannot_be_opened) {
    EXPECT_EQ(info.get_vask_gpu_type_check(), 2);
    EXPECT_THAT(log.lines(), ElementsAre(error("Failed to open: " + files.pci_devices())));
}

TEST_F(hardware_detection, Gpu_is_told_by_vendor_and_device) {
    EXPECT_EQ(gpu_of(gma_500), 3);
    EXPECT_EQ(gpu_of(gma_4500), 5);
    EXPECT_EQ(gpu_of(nvidia), 6);
    EXPECT_EQ(gpu_of(host_bridge), 1);
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(hardware_detection, Gpu_is_never_a_gma_950) {
    EXPECT_EQ(gpu_of("0010\t808627a2\t10\n0010\t808627ae\t10\n"), 1);
}

TEST_F(hardware_detection, Gpu_is_found_below_devices_that_match_nothing) {
    EXPECT_EQ(gpu_of(std::string(host_bridge) + "00d8\t808627d8\t10\n" + gma_4500), 5);
}

TEST_F(hardware_detection, Gpu_is_the_first_that_matches) {
    EXPECT_EQ(gpu_of(std::string(nvidia) + gma_500 + gma_4500), 6);
    EXPECT_EQ(gpu_of(std::string(gma_500) + nvidia), 3);
}

TEST_F(hardware_detection, Gpu_is_told_by_the_second_field_alone) {
    EXPECT_EQ(gpu_of("80868108\t80868100\t10\n"), 1);
    EXPECT_EQ(gpu_of("0010\t80868100\t80868108\n"), 1);
}

TEST_F(hardware_detection, Gpu_fields_are_separated_by_blanks_tabs_and_line_ends) {
    EXPECT_EQ(gpu_of("0010 80868108 10\n"), 3);
    EXPECT_EQ(gpu_of(" \t 0010 \t\r 80868108\r\n"), 3);
    EXPECT_EQ(gpu_of("0010\v80868108\n"), 1);
}

TEST_F(hardware_detection, Gpu_lines_with_less_than_two_fields_are_skipped) {
    EXPECT_EQ(gpu_of(std::string("\n80868108\n \t \n0010\n") + gma_4500), 5);
    EXPECT_EQ(gpu_of("80868108\n"), 1);
}

TEST_F(hardware_detection, Gpu_number_is_hexadecimal_in_either_case) {
    EXPECT_EQ(gpu_of("0 80862A42\n"), 5);
    EXPECT_EQ(gpu_of("0 0x80862a42\n"), 5);
    EXPECT_EQ(gpu_of("0 0010DE06fa\n"), 6);
}

TEST_F(hardware_detection, Gpu_number_that_is_none_matches_nothing) {
    EXPECT_EQ(gpu_of("0 none\n0 -\n0 0x\n0 zz80868108\n"), 1);
    EXPECT_EQ(gpu_of("0 808681\n"), 1);
    EXPECT_EQ(gpu_of("0 180868108\n0 ffffffffffffffffffffffffffffff\n"), 1);
}

TEST_F(hardware_detection, Gpu_of_an_empty_file_is_unknown) {
    EXPECT_EQ(gpu_of(""), 1);
    EXPECT_EQ(gpu_of("\n\n"), 1);
}

TEST_F(hardware_detection, Gpu_is_found_without_a_line_end) {
    EXPECT_EQ(gpu_of("0010\t80868108"), 3);
}

TEST_F(hardware_detection, Gpu_is_found_below_a_huge_line) {
    const std::string huge(20'000'000, '8');
    EXPECT_EQ(gpu_of("0 " + huge + "\n" + gma_500), 3);
    EXPECT_EQ(gpu_of(huge), 1);
}

TEST_F(hardware_detection, Gpu_is_not_told_by_the_rest_of_a_huge_line) {
    EXPECT_EQ(gpu_of(std::string(1000, ' ') + "0 80868108\n"), 1);
    EXPECT_EQ(gpu_of(std::string(990, ' ') + "0 80868108\n"), 3);
}

TEST_F(hardware_detection, Gpu_is_found_among_bytes_that_are_no_text) {
    EXPECT_EQ(gpu_of("\xff\xfe \xc3\x28\n\x80\t\x81\n" + std::string(gma_500)), 3);
    EXPECT_EQ(gpu_of(std::string("0\0 80862a42\n", 12) + gma_500), 3);
}

TEST_F(hardware_detection, Gives_every_processor_its_text) {
    const std::vector<std::string> texts = {"Not checked", "Unknown", "Error",
                                            "ATOM Z",      "ATOM N",  "Core 2 Duo"};
    for (size_t i = 0; i < texts.size(); ++i) {
        const auto type = static_cast<vask_cpu_type>(i);
        EXPECT_EQ(vask_shared_info::get_vask_cpu_type_str(type), texts[i]);
        EXPECT_EQ(vask_object::get_vask_cpu_type_str(type), texts[i]);
    }
}

TEST_F(hardware_detection, Gives_every_graphics_device_its_text) {
    const std::vector<std::string> texts = {"Not checked", "Unknown", "Error",
                                            "GMA 500",     "GMA 950", "GMA 4500MHD"};
    for (size_t i = 0; i < texts.size(); ++i) {
        const auto type = static_cast<vask_gpu_type>(i);
        EXPECT_EQ(vask_shared_info::get_vask_gpu_type_str(type), texts[i]);
        EXPECT_EQ(vask_object::get_vask_gpu_type_str(type), texts[i]);
    }
}

TEST_F(hardware_detection, Gives_what_has_no_text_a_constant_one) {
    for (const int number : {6, 7, 1000, -1, INT_MAX, INT_MIN}) {
        EXPECT_STREQ(vask_object::get_vask_cpu_type_str(static_cast<vask_cpu_type>(number)),
                     "Unknown");
        EXPECT_STREQ(vask_object::get_vask_gpu_type_str(static_cast<vask_gpu_type>(number)),
                     "Unknown");
    }
}
