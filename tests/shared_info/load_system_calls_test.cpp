// What the library itself asks of the system while it is loaded.

#include <dlfcn.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "shared_info/system_call_count.h"

namespace {

bool flag(void* library, const char* name) {
    return *static_cast<const bool*>(dlsym(library, name));
}

}  // namespace

TEST(load_system_calls, Are_none) {
    const system_call_count count = count_system_calls([] {
        // Not to be mixed up with the library that the test itself is linked to.
        void* library = dlopen(VASK_TEST_LOAD_END_MARK, RTLD_NOW | RTLD_DEEPBIND);
        if (!library)
            return 1;
        return !flag(library, "was_made_before_begin") && flag(library, "was_made_at_end") ? 0 : 2;
    });
    EXPECT_EQ(count.exit_status, 0);
    ASSERT_TRUE(count.is_complete);
    EXPECT_EQ(count.all, 0) << testing::PrintToString(count);
}
