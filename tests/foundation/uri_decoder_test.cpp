// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

// Whose decoder converts a file URI. It is chosen once, so every test has a process of its own.

#include <dlfcn.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <unistd.h>

#include <functional>
#include <future>
#include <thread>

#include "support/interpose.h"
#include "support/mapped_file.h"
#include "support/source_line.h"
#include "vask_object.h"
#include "vask_test/googletest.h"

using namespace vask_test;
using testing::ElementsAre;
using testing::ExitedWithCode;

namespace {

const char libsoup_2[] = "libsoup-2.4.so.1";
const char libsoup_3[] = "libsoup-3.0.so.0";

std::function<void()> before_libsoup_2_is_loaded = [] {};
std::function<void()> when_loading_has_begun = [] {};

}  // namespace

extern "C" void* dlopen(const char* file, int flags) {
    if (file != nullptr && strcmp(file, libsoup_2) == 0) {
        before_libsoup_2_is_loaded();
    }
    return next_function<void*(const char*, int)>("dlopen")(file, flags);
}

extern "C" void loading_has_begun() {
    when_loading_has_begun();
}

namespace {

void require(bool condition, const std::string& complaint) {
    if (!condition) {
        fprintf(stderr, "%s\n", complaint.c_str());
        _exit(1);
    }
}

void* load(const char* file, int visibility) {
    void* const library = dlopen(file, RTLD_NOW | visibility);
    require(library != nullptr, std::string(file) + " cannot be loaded");
    return library;
}

void expect_path(const char* uri, const std::string& path) {
    const std::string converted = vask_object::file_uri_to_local_path(uri);
    require(converted == path, converted + " instead of " + path);
}

void expect_conversion() {
    expect_path("file:///a%20b%zz%00c", "/a b%zz");
}

void expect_loaded(const char* library, bool loaded) {
    require(is_file_mapped(library) == loaded,
            std::string(library) + (loaded ? " is not" : " is") + " in the process");
}

/** Makes objects of it, because another libsoup in the process is also noticed by them. */
void use_libsoup_3(void* library) {
    const auto create = reinterpret_cast<void* (*)()>(dlsym(library, "soup_session_new"));
    require(create != nullptr && create() != nullptr, "libsoup 3 does not work");
}

void run_alone(const std::function<void()>& body) {
    EXPECT_EXIT(
        {
            body();
            _exit(0);
        },
        ExitedWithCode(0), "");
}

}  // namespace

TEST(uri_decoder, Is_taken_from_libsoup_when_the_first_file_uri_is_converted) {
    run_alone([] {
        vask_object::file_uri_to_local_path("http://host/a%20b");
        expect_loaded("libsoup", false);
        expect_conversion();
        expect_loaded(libsoup_2, true);
    });
}

TEST(uri_decoder, Is_the_library_s_own_where_libsoup_cannot_be_loaded) {
    run_alone([] {
        const rlimit no_descriptor = {3, 3};
        rlimit limit;
        getrlimit(RLIMIT_NOFILE, &limit);
        setrlimit(RLIMIT_NOFILE, &no_descriptor);
        expect_conversion();
        setrlimit(RLIMIT_NOFILE, &limit);
        expect_conversion();
        expect_loaded(libsoup_2, false);
    });
}

TEST(uri_decoder, Is_the_library_s_own_beside_a_libsoup_3_that_everybody_sees) {
    run_alone([] {
        void* const library = load(libsoup_3, RTLD_GLOBAL);
        expect_conversion();
        expect_loaded(libsoup_2, false);
        use_libsoup_3(library);
    });
}

TEST(uri_decoder, Is_the_library_s_own_beside_a_libsoup_3_of_a_plug_in) {
    run_alone([] {
        void* const library = load(libsoup_3, RTLD_LOCAL);
        expect_conversion();
        expect_loaded(libsoup_2, false);
        use_libsoup_3(library);
    });
}

TEST(uri_decoder, Is_the_library_s_own_in_a_program_that_contains_libsoup_3) {
    run_alone([] {
        load(LIBSOUP_3_MODULE, RTLD_GLOBAL);
        expect_conversion();
        expect_loaded(libsoup_2, false);
    });
}

TEST(uri_decoder, Does_not_keep_a_libsoup_3_that_its_owner_unloads) {
    run_alone([] {
        // GLib keeps libsoup loaded once it has registered types, so the test calls nothing in it.
        void* const library = load(libsoup_3, RTLD_LOCAL);
        expect_conversion();
        dlclose(library);
        expect_loaded(libsoup_3, false);
        expect_conversion();
    });
}

TEST(uri_decoder, Does_no_harm_to_a_libsoup_3_that_comes_later) {
    for (const int visibility : {RTLD_GLOBAL, RTLD_LOCAL}) {
        run_alone([visibility] {
            expect_conversion();
            expect_loaded(libsoup_2, true);
            use_libsoup_3(load(libsoup_3, visibility));
            expect_conversion();
        });
    }
}

TEST(uri_decoder, Is_the_one_that_the_process_has) {
    run_alone([] {
        load(URI_DECODER_MODULE, RTLD_GLOBAL);
        expect_path("file:///a", "/of/the/module");
        expect_loaded(libsoup_2, false);
    });
}

TEST(uri_decoder, Stays_when_its_owner_unloads_it) {
    run_alone([] {
        void* const module = load(URI_DECODER_MODULE, RTLD_GLOBAL);
        expect_path("file:///a", "/of/the/module");
        dlclose(module);
        expect_path("file:///a", "/of/the/module");
    });
}

TEST(uri_decoder, May_be_needed_by_many_threads_at_first) {
    run_alone([] {
        std::promise<void> start;
        const std::shared_future<void> started(start.get_future());
        std::vector<std::thread> threads;
        for (int i = 0; i < 8; ++i) {
            threads.emplace_back([started] {
                started.wait();
                expect_conversion();
            });
        }
        start.set_value();
        for (std::thread& thread : threads) {
            thread.join();
        }
    });
}

TEST(uri_decoder, May_be_needed_at_first_by_a_library_that_is_being_loaded_meanwhile) {
    run_alone([] {
        std::promise<void> searching, loading;
        std::thread::id searcher;
        before_libsoup_2_is_loaded = [&] {
            if (std::this_thread::get_id() == searcher) {
                searching.set_value();
                loading.get_future().wait();
            }
        };
        when_loading_has_begun = [&] { loading.set_value(); };
        std::thread other([&] {
            searcher = std::this_thread::get_id();
            expect_conversion();
        });
        searching.get_future().wait();
        load(CONVERTING_MODULE, RTLD_LOCAL);
        other.join();
    });
}

TEST(file_uri_to_local_path, Is_empty_and_logged_when_decoding_fails) {
    void* const module = load(URI_DECODER_MODULE, RTLD_GLOBAL);
    log_catcher log;
    EXPECT_EQ(vask_object::file_uri_to_local_path("file:///tmp/%41"), "");
    EXPECT_THAT(
        log.lines(),
        ElementsAre(logged(
            "ERR", "vask",
            from_line_of("vask_object_file", "Failed to call soup_uri_decode: file:///tmp/%41"))));
    dlclose(module);
}
