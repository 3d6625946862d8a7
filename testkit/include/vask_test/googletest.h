// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#ifndef VASK_TEST_GOOGLETEST_H
#define VASK_TEST_GOOGLETEST_H

/**
 * @file
 * @brief The test kit in GoogleTest: matchers, and what looks after every test. Everything else of
 *        the kit does without GoogleTest.
 */

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "vask_test/log_catcher.h"
#include "vask_test/resource_count.h"
#include "vask_test/scripted_parent.h"

namespace vask_test {

/**
 * A whole logged line.
 *
 * @param level  such as "ERR"
 * @param name   of the object that logs
 * @param text   without line end; a text, or a matcher for one
 * @return a matcher for log_line
 */
template <typename Text>
testing::Matcher<const log_line&> logged(const std::string& level, const std::string& name,
                                         const Text& text) {
    return testing::AllOf(testing::Field("level", &log_line::level, level),
                          testing::Field("name", &log_line::name, name),
                          testing::Field("text", &log_line::text, text));
}

/**
 * A command that was answered.
 *
 * @param reply  the reply; a text, or a matcher for one
 * @return a matcher for child_answer
 */
template <typename Text>
testing::Matcher<const child_answer&> answered(const Text& reply) {
    return testing::AllOf(testing::Field("ok", &child_answer::ok, true),
                          testing::Field("reply", &child_answer::reply, reply));
}

/**
 * A command that was not answered, or with an error.
 *
 * @param error  what went wrong; a text, or a matcher for one
 * @return a matcher for child_answer
 */
template <typename Text>
testing::Matcher<const child_answer&> not_answered(const Text& error) {
    return testing::AllOf(testing::Field("ok", &child_answer::ok, false),
                          testing::Field("error", &child_answer::error, error));
}

/**
 * The same resources as at another time.
 *
 * @param before  an earlier count of the same process
 * @return a matcher for a later one
 */
inline testing::Matcher<const resource_count&> holds_no_more_than(const resource_count& before) {
    const auto change = [before](const resource_count& later) { return before.difference(later); };
    return testing::ResultOf("change", change, std::string());
}

/** What leak_listener says of the shared objects that the library keeps for all. */
enum class library_objects {
    may_stay, /**< nothing: they outlive the processes that use them */
    are_leaks /**< a test that leaves one has to remove it */
};

/** Fails every test after which the process holds other resources than before. */
class leak_listener : public testing::EmptyTestEventListener {
public:
    /** @param kept  whether what the library keeps for all is a leak */
    explicit leak_listener(library_objects kept = library_objects::may_stay) : m_kept(kept) {}

    /** Takes the first count. */
    void OnTestStart(const testing::TestInfo&) override {
        accepts_leftovers() = false;
        m_before = count();
    }

    /** Compares it with a second one. */
    void OnTestEnd(const testing::TestInfo&) override {
        if (accepts_leftovers()) {
            return;
        }
        const std::string difference = m_before.difference(count());
        if (!difference.empty()) {
            ADD_FAILURE() << "resources changed:\n" << difference;
        }
    }

    /** For the running test only. */
    static void accept_leftovers() { accepts_leftovers() = true; }

private:
    static bool& accepts_leftovers() {
        static bool accepted = false;
        return accepted;
    }

    resource_count count() const {
        const resource_count all = resource_count::take();
        return m_kept == library_objects::are_leaks ? all : all.without_library_objects();
    }

    const library_objects m_kept;
    resource_count m_before;
};

/** Shows failure messages through a log_catcher. Stands before and after what prints them. */
template <void (*Switch)()>
class output_switch : public testing::EmptyTestEventListener {
    void OnTestPartResult(const testing::TestPartResult&) override { Switch(); }
};

/**
 * Has the kit look after every test: leak_listener, and what log_catcher promises. Call it in main,
 * after InitGoogleTest or InitGoogleMock.
 *
 *     int main(int argc, char** argv) {
 *         testing::InitGoogleMock(&argc, argv);
 *         vask_test::set_up_googletest();
 *         return RUN_ALL_TESTS();
 *     }
 *
 * @param kept  what leak_listener says of what the library keeps for all
 */
inline void set_up_googletest(library_objects kept = library_objects::may_stay) {
    // Who only lists the tests wants no other output, nor a connection to the bus.
    if (GTEST_FLAG_GET(list_tests)) {
        return;
    }
    testing::TestEventListeners& listeners = testing::UnitTest::GetInstance()->listeners();
    testing::TestEventListener* printer = listeners.Release(listeners.default_result_printer());
    listeners.Append(new output_switch<log_catcher::suspend>);
    listeners.Append(printer);
    listeners.Append(new output_switch<log_catcher::resume>);
    listeners.Append(new leak_listener(kept));
    log_catcher::show_after(testing::Test::HasFailure);
    warm_up_process_resources();
}

}  // namespace vask_test

#endif
