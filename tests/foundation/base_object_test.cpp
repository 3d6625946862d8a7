// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <semaphore.h>
#include <unistd.h>

#include <functional>
#include <memory>
#include <type_traits>

#include "support/interpose.h"
#include "support/named_object.h"
#include "vask_test/log_catcher.h"

using namespace vask_test;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

class left : public virtual vask_object {};
class right : public virtual vask_object {};
class diamond : public left, public right {
public:
    explicit diamond(const char* name) { obj_name = name; }
};

/** Renames itself at the last moment. */
class renaming_object : public vask_object {
public:
    ~renaming_object() override { obj_name = "last name"; }
};

std::function<void()> before_post;

const char destructor_text[] = "virtual vask_object::~vask_object()";

}  // namespace

extern "C" int sem_post(sem_t* sem) noexcept {
    if (before_post) {
        before_post();
    }
    return next_function<int(sem_t*)>("sem_post")(sem);
}

TEST(base_object, Has_no_name_and_no_lock_at_first) {
    log_catcher log;
    struct reached : vask_object {
        using vask_object::obj_name;
        using vask_object::shm_lock_sem;
    } object;
    EXPECT_STREQ(object.obj_name, "<No Name>");
    EXPECT_EQ(object.shm_lock_sem, nullptr);
    object.vask_p(VASK_P_ERR, "x\n");
    EXPECT_THAT(log.lines(), ElementsAre(line("ERR", "<No Name>", "x")));
}

TEST(base_object, Has_the_name_and_the_lock_behind_its_table_and_nothing_else) {
    struct layout {
        void* table;
        const char* name;
        sem_t* lock;
    };
    EXPECT_EQ(sizeof(vask_object), sizeof(layout));
    named_object object("a");
    const auto* bytes = reinterpret_cast<const char*>(static_cast<vask_object*>(&object));
    EXPECT_EQ(reinterpret_cast<const char*>(&object.obj_name) - bytes,
              static_cast<ptrdiff_t>(offsetof(layout, name)));
    EXPECT_EQ(reinterpret_cast<const char*>(&object.shm_lock_sem) - bytes,
              static_cast<ptrdiff_t>(offsetof(layout, lock)));
}

TEST(base_object, Is_neither_copied_nor_assigned) {
    EXPECT_FALSE(std::is_copy_constructible<vask_object>::value);
    EXPECT_FALSE(std::is_copy_assignable<vask_object>::value);
    EXPECT_FALSE(std::is_move_constructible<vask_object>::value);
    EXPECT_FALSE(std::is_move_assignable<vask_object>::value);
}

TEST(base_object, Is_one_however_many_paths_lead_to_it) {
    const diamond object("player");
    log_catcher log;
    static_cast<const left&>(object).vask_p(VASK_P_ERR, "left\n");
    static_cast<const right&>(object).vask_p(VASK_P_ERR, "right\n");
    EXPECT_THAT(log.lines(),
                ElementsAre(line("ERR", "player", "left"), line("ERR", "player", "right")));
}

TEST(base_object, Says_at_DBG_that_it_ends) {
    vask_object::print_msg_level = VASK_P_DBG;
    auto object = std::make_unique<vask_object>();
    log_catcher log;
    object.reset();
    EXPECT_THAT(log.lines(), ElementsAre(line("DBG", "<No Name>", destructor_text)));
}

TEST(base_object, Ends_in_silence_below_DBG) {
    auto object = std::make_unique<vask_object>();
    log_catcher log;
    object.reset();
    EXPECT_EQ(log.text(), "");
}

TEST(base_object, Ends_under_the_name_that_its_class_gave_it) {
    vask_object::print_msg_level = VASK_P_DBG;
    std::unique_ptr<vask_object> object = std::make_unique<named_object>("player");
    log_catcher log;
    object.reset();
    EXPECT_THAT(log.lines(), ElementsAre(line("DBG", "player", destructor_text)));
}

TEST(base_object, Ends_under_the_name_that_the_last_destructor_finds) {
    vask_object::print_msg_level = VASK_P_DBG;
    std::unique_ptr<vask_object> object = std::make_unique<renaming_object>();
    log_catcher log;
    object.reset();
    EXPECT_THAT(log.lines(), ElementsAre(line("DBG", "last name", destructor_text)));
}

TEST(base_object, Gives_back_the_lock_that_it_holds_when_it_ends) {
    sem_t* const own = sem_open("/foundation_lock", O_CREAT, 0600, 0);
    ASSERT_NE(own, SEM_FAILED);
    int value = -1;
    {
        named_object object("a");
        object.shm_lock_sem = sem_open("/foundation_lock", 0);
        ASSERT_NE(object.shm_lock_sem, SEM_FAILED);
        sem_getvalue(own, &value);
        EXPECT_EQ(value, 0);
    }
    sem_getvalue(own, &value);
    EXPECT_EQ(value, 1);
    sem_close(own);
    sem_unlink("/foundation_lock");
}

TEST(base_object, Says_that_it_ends_before_it_gives_the_lock_back) {
    log_catcher log;
    std::string said_before;
    {
        vask_object::print_msg_level = VASK_P_DBG;
        named_object object("a");
        ASSERT_TRUE(object.shm_lock());
        before_post = [&] { said_before = log.text(); };
    }
    before_post = nullptr;
    EXPECT_THAT(parse_log(said_before), ElementsAre(line("DBG", "a", destructor_text)));
    sem_unlink("vask_shm_lock");
}

TEST(base_object, Gives_a_lock_back_only_once) {
    sem_t* const own = sem_open("/foundation_lock", O_CREAT, 0600, 0);
    ASSERT_NE(own, SEM_FAILED);
    log_catcher log;
    {
        named_object object("a");
        object.shm_lock_sem = sem_open("/foundation_lock", 0);
        object.shm_unlock();
        EXPECT_EQ(object.shm_lock_sem, nullptr);
        EXPECT_EQ(log.text(), "");
        object.shm_unlock();
    }
    EXPECT_THAT(log.lines(), ElementsAre(line("WARN", "a", "No shm lock held.")));
    int value = -1;
    sem_getvalue(own, &value);
    EXPECT_EQ(value, 1);
    sem_close(own);
    sem_unlink("/foundation_lock");
}

TEST(empty_strlist, Is_empty) {
    EXPECT_THAT(vask_object::__empty_strlist, IsEmpty());
}

TEST(empty_strlist, Serves_as_a_default_argument) {
    struct callee {
        static size_t count(strlist& list = vask_object::__empty_strlist) { return list.size(); }
    };
    strlist two = {"a", "b"};
    EXPECT_EQ(callee::count(), 0U);
    EXPECT_EQ(callee::count(two), 2U);
}
