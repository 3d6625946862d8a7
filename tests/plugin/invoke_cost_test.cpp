// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

// What the library itself does for a script's call: it fetches and frees one name, and takes no
// memory but for the copy of a name that is too long for std::string's own room.

#include <gtest/gtest.h>

#include <string>

#include "support/counted_memory.h"
#include "vask_script.h"

using namespace vask_test;

namespace {

int names_fetched = 0;
int names_freed = 0;

/** Names are constants: whatever is allocated is the library's. */
NPUTF8* fetch_name(NPIdentifier identifier) {
    ++names_fetched;
    return static_cast<NPUTF8*>(identifier);
}

void free_name(void*) {
    ++names_freed;
}

class quiet_script : public vask_script {
public:
    quiet_script() : vask_script("quiet") {
        method_map["short"] = static_cast<script_method>(&quiet_script::handle);
        method_map[long_name] = static_cast<script_method>(&quiet_script::handle);
        for (int i = 0; i < 1000; ++i) {
            method_map["other" + std::to_string(i)] = method_map["short"];
        }
    }

    bool handle(const NPVariant*, uint32_t, NPVariant*) { return true; }

    static constexpr const char* long_name = "a_name_of_more_than_fifteen_characters";
};

class invoke_cost : public testing::Test {
protected:
    void SetUp() override {
        vask_np_base::NPNFuncs = NPNetscapeFuncs();
        vask_np_base::NPNFuncs.utf8fromidentifier = fetch_name;
        vask_np_base::NPNFuncs.memfree = free_name;
    }

    /** @return the number of allocations */
    int invoke(const char* name) {
        NPVariant result;
        const int before = allocations;
        EXPECT_TRUE(
            vask_script_class.invoke(&script, const_cast<char*>(name), nullptr, 0, &result));
        return allocations - before;
    }

    quiet_script script;
};

}  // namespace

TEST_F(invoke_cost, Of_a_short_name_has_no_allocation) {
    EXPECT_EQ(invoke("short"), 0);
}

TEST_F(invoke_cost, Of_a_long_name_has_one_allocation) {
    EXPECT_EQ(invoke(quiet_script::long_name), 1);
}

TEST_F(invoke_cost, Has_one_fetch_and_one_free_of_the_name) {
    invoke("short");
    EXPECT_EQ(names_fetched, 1);
    EXPECT_EQ(names_freed, 1);
}

TEST_F(invoke_cost, Frees_the_name_when_there_is_no_memory_for_its_copy) {
    NPVariant result;
    allocation_that_fails = 1;
    EXPECT_FALSE(vask_script_class.invoke(&script, const_cast<char*>(quiet_script::long_name),
                                          nullptr, 0, &result));
    EXPECT_EQ(names_freed, 1);
}
