// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

// The parent of the demonstration. It tells its own story, step by step, and checks for every step
// that what it tells has really happened; the first step for which that is not so ends it.

#include <errno.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>
#include <vask_shared_info.h>

#include <climits>
#include <memory>
#include <vector>

#include "demo_bridge.h"
#include "demo_picture.h"
#include "demo_protocol.h"
#include "demo_stage.h"
#include "demo_window.h"

using demo_stage::expect;
using demo_stage::expect_text;
using demo_stage::say;
using demo_stage::wait_until;

namespace {

struct options {
    std::string child_program;
    std::string tool_program;
    std::string vaskctl_program;
    std::string screenshot_directory;
    unsigned int pause_msec = 0;
};

const char window_note[] = "a window of 360x360";

std::string greeting_from(int pid) {
    return "Hello parent, I am process " + std::to_string(pid);
}

bool process_exists(int pid) {
    return kill(pid, 0) == 0 || errno != ESRCH;
}

// Gives the monitor back as it was: it belongs to everybody.
class monitor_keeper {
public:
    ~monitor_keeper() { vask_object::set_monitor_rotation(m_rotation); }

private:
    const vask_monitor_rotation_type m_rotation = vask_object::get_monitor_rotation();
};

class demonstration {
public:
    explicit demonstration(const options& wanted)
        : m_options(wanted), m_bridge(new demo_bridge(wanted.child_program)) {
        m_window.on_exposed([this] { name_window(); });
    }

    void run() {
        struct step {
            const char* title;
            void (demonstration::*play)();
        };
        const std::vector<step> steps = {
            {"The parent opens a window", &demonstration::open_window},
            {"It starts the child and talks to it before it can listen", &demonstration::start},
            {"Parent and child meet on the session bus", &demonstration::meet},
            {"The child has got the window and the commands, in order",
             &demonstration::check_what_arrived},
            {"A command with a reply", &demonstration::ask_for_reply},
            {"A signal, the other way round", &demonstration::hear_signal},
            {"A stranger finds the child and asks it", &demonstration::use_tool},
            {"A window that is gone does the child no harm", &demonstration::name_stale_window},
            {"Another process turns the monitor", &demonstration::turn_monitor},
            {"The child crashes", &demonstration::lose_child},
            {"The parent starts it again", &demonstration::start_again},
            {"A polite end", &demonstration::end_politely},
            {"Twins: two workers from one program", &demonstration::start_twins},
            {"The main worker is killed, and its twin steps in", &demonstration::lose_main_twin},
            {"The bridge goes, and the last child with it", &demonstration::drop_bridge},
            {"A last look at the family, from outside", &demonstration::show_family},
        };
        for (const step& current : steps) {
            demo_stage::begin_step(++m_step, static_cast<int>(steps.size()), current.title);
            (this->*current.play)();
            demo_stage::pause(m_options.pause_msec);
        }
    }

    /** The numbers of the steps that could not be shown, with a blank before each. */
    const std::string& left_out() const { return m_left_out; }

private:
    void open_window() {
        expect(m_window.open(), "the X display '" + std::string(XDisplayName(nullptr)) +
                                    "' can be opened and has true colours");
        expect(wait_until([this] { return m_window.is_visible(); }), "the window appears");
        say("it is " + std::to_string(demo_picture::width) + "x" +
            std::to_string(demo_picture::height) + " pixels, and empty: the child shall paint it");
        say("I tell my bridge about it, which keeps it for the child");
        name_window();
    }

    void start() {
        expect(m_bridge->is_watching_bus(), "there is a session bus");
        m_bridge->start_child();
        const int pid = m_bridge->get_child_pid();
        expect(pid > 0, "the program '" + m_options.child_program + "' starts");
        say("the child is process " + std::to_string(pid) + "; it is not on the bus yet");

        for (const char* note : {"one", "two", "three"}) {
            expect(m_bridge->send_cmd_no_reply(DEMO_CMD_NOTE, note), "a command is queued");
        }
        say("I have sent it three commands that want no reply; they wait in a queue");

        char* reply = nullptr;
        vask_error error;
        expect(!m_bridge->send_cmd(DEMO_CMD_GREET, &reply, "parent", &error) &&
                   error.get_code() == VASK_ERR_NO_CHILD_PROXY,
               "a command that wants its reply at once is refused");
        say("one that wants its reply at once is refused: \"" + error.get_message() + "\"");
    }

    void meet() {
        expect_child_on_bus();
        say("the child's name has appeared, its address on the bus is " +
            std::string(m_bridge->get_child_bus_addr()));
    }

    void check_what_arrived() {
        const std::string diary = m_bridge->ask(DEMO_CMD_DIARY, "");
        expect_text(diary, std::string(window_note) + "; one; two; three", "the child's diary");
        say("its diary says: \"" + diary + "\"");
        expect_picture_of(m_bridge->get_child_pid(), "first-child");
    }

    void ask_for_reply() { expect_greeting(); }

    void hear_signal() {
        say("I ask the child to ring");
        m_bridge->send_cmd_no_reply(DEMO_CMD_RING, "dinner is ready");
        expect(wait_until([this] { return !m_bridge->get_rings().empty(); }),
               "the child's signal arrives");
        expect_text(m_bridge->get_rings().back(), "dinner is ready", "the signal's data");
        say("my callback for its signal has got: \"" + m_bridge->get_rings().back() + "\"");
    }

    void use_tool() {
        if (!m_bridge->is_child_registered() &&
            leave_out_for({"sem.vask_shm_lock", "vask_proc_pid_demo_child"})) {
            return;
        }
        const std::string pid = std::to_string(m_bridge->get_child_pid());
        say("I run 'demo_ctl list', which knows neither me nor my child");
        const std::string entry = "key " + pid + ": process " + pid + "\n";
        expect(output_of_tool({"list"}).find(entry) != std::string::npos, "it lists the child");
        say("it has looked the name 'demo_child' up, and lists the child's process");

        const std::string diary =
            "process " + pid + " has noted: " + window_note + "; one; two; three";
        expect_text(output_of_tool({"show", pid}), diary + "\n", "what it shows");
        say("'demo_ctl show " + pid + "' prints: \"" + diary + "\"");
    }

    void name_stale_window() {
        say("I name a window to the child that I have closed already");
        m_bridge->set_window(0, 0, demo_picture::width, demo_picture::height,
                             m_window.make_stale_id());
        expect_text(m_bridge->ask(DEMO_CMD_DIARY, ""),
                    std::string(window_note) + "; one; two; three; a window that is gone",
                    "the child's diary");
        say("and the real one again");
        name_window();
        expect_greeting();
    }

    void turn_monitor() {
        if (vask_object::get_monitor_rotation() == VASK_MONITOR_ROTATION_ERROR &&
            leave_out_for({"sem.vask_shm_context_sem_vask_shared_info",
                           "vask_shm_context_shm_vask_shared_info"})) {
            return;
        }
        const monitor_keeper keeper;
        const int pid = m_bridge->get_child_pid();
        say("I run 'demo_ctl rotate 1': it writes into the record that all processes share");
        output_of_tool({"rotate", "1"});
        expect_turned_picture_of(pid, 1, "turned-child");
        say("and 'demo_ctl rotate 2'");
        output_of_tool({"rotate", "2"});
        expect_turned_picture_of(pid, 2, "upside-down-child");
    }

    void lose_child() {
        const int pid = m_bridge->get_child_pid();
        const size_t ends = m_bridge->get_ends().size();
        m_bridge->send_cmd_no_reply(DEMO_CMD_CRASH, "");
        expect_end(ends, {false, true});
        expect(m_bridge->get_child_pid() == -1 && !process_exists(pid), "the child is gone");
        say("child_crash_cb() was called: process " + std::to_string(pid) + " is gone");

        say("commands fail now; the next line is the library's own");
        vask_error error;
        expect(!m_bridge->send_cmd_no_reply(DEMO_CMD_NOTE, "", &error) &&
                   error.get_code() == VASK_ERR_NOT_SPAWNED,
               "a command without a child fails");
        m_last_pid = pid;
    }

    void start_again() {
        m_bridge->start_child();
        const int pid = m_bridge->get_child_pid();
        expect(pid > 0 && pid != m_last_pid, "there is a new child");
        expect_child_on_bus();
        say("the new child is process " + std::to_string(pid));

        const std::string diary = m_bridge->ask(DEMO_CMD_DIARY, "");
        expect_text(diary, window_note, "the new child's diary");
        say("it was told the window, and knows nothing else: \"" + diary + "\"");
        expect_picture_of(pid, "second-child");
        expect_greeting();
    }

    void end_politely() {
        const int pid = m_bridge->get_child_pid();
        const size_t ends = m_bridge->get_ends().size();
        m_bridge->terminate_worker();
        expect_text(m_bridge->get_farewell(), "goodbye from process " + std::to_string(pid),
                    "the child's farewell");
        say("it said: \"" + m_bridge->get_farewell() + "\"");
        expect_end(ends, {true, true});
        expect(m_bridge->get_child_pid() == -1 && !process_exists(pid), "the child has ended");
        say("child_exit_cb() was called: it has ended, as I had asked");
    }

    void start_twins() {
        m_bridge->enable_twins_mode();
        m_bridge->start_child();
        const int main_pid = m_bridge->get_child_pid();
        const int other_pid = m_bridge->get_other_worker_pid();
        expect(main_pid > 0 && other_pid > 0 && main_pid != other_pid, "two workers start");
        expect(wait_until([this] {
                   return m_bridge->is_main_worker_on_bus() && m_bridge->is_other_worker_on_bus();
               }),
               "both workers appear on the bus");
        say("process " + std::to_string(main_pid) + " is the main worker, process " +
            std::to_string(other_pid) + " its twin");

        // Each of them has painted the window when it came. Calls to one child keep their order:
        // after its answer to another one the twin does not paint any more.
        m_bridge->switch_main_worker();
        expect_greeting();
        m_bridge->switch_main_worker();
        expect_greeting();
        say("only the main worker hears about the window from now on");
        name_window();
        expect_picture_of(main_pid, "main-worker");
    }

    void lose_main_twin() {
        const int main_pid = m_bridge->get_child_pid();
        const int other_pid = m_bridge->get_other_worker_pid();
        const size_t ends = m_bridge->get_ends().size();
        say("I kill process " + std::to_string(main_pid));
        kill(main_pid, SIGKILL);
        expect_end(ends, {false, true});
        expect(m_bridge->get_child_pid() == -1 && !process_exists(main_pid),
               "the main worker is gone");

        expect(m_bridge->switch_main_worker() && m_bridge->get_child_pid() == other_pid,
               "the twin is the main worker now");
        say("process " + std::to_string(other_pid) + " is the main worker now");
        expect_greeting();
        name_window();
        expect_picture_of(other_pid, "its-twin");
    }

    void drop_bridge() {
        const int pid = m_bridge->get_child_pid();
        m_bridge.reset();
        expect(!process_exists(pid), "the last child has ended");
        say("its destructor has ended process " + std::to_string(pid) + " and waited for that");
    }

    // What all processes of the machine share belongs to the user who was first to use it.
    bool leave_out_for(const std::vector<std::string>& objects) {
        for (const std::string& name : objects) {
            const std::string path = "/dev/shm/" + name;
            struct stat info;
            if (stat(path.c_str(), &info) == 0 && info.st_uid != geteuid()) {
                say("I leave this out: " + path + " belongs to another user");
                m_left_out += " " + std::to_string(m_step);
                return true;
            }
        }
        return false;
    }

    void show_family() {
        m_bridge.reset(new demo_bridge(m_options.child_program));
        m_bridge->enable_twins_mode();
        m_bridge->start_child();
        expect(wait_until([this] {
                   return m_bridge->is_main_worker_on_bus() && m_bridge->is_other_worker_on_bus();
               }),
               "both workers appear on the bus");
        if (access(m_options.vaskctl_program.c_str(), X_OK) != 0) {
            say("there is no vaskctl at hand to show us");
            return;
        }
        say("I run 'vaskctl tree': this is me, with the twins of a new bridge");
        std::string tree;
        expect(wait_until([&] {
                   tree = output_of(m_options.vaskctl_program, {"tree", "--timeout=5000"});
                   return is_met(tree, m_bridge->get_child_pid()) &&
                          is_met(tree, m_bridge->get_other_worker_pid());
               }),
               "it shows that I have met both");
        printf("%s", tree.c_str());
    }

    // Whether the line of a process, whose cells are separated by tabs, says so.
    static bool is_met(const std::string& tree, int pid) {
        const size_t line = tree.find("\t" + std::to_string(pid) + "\t");
        return line != std::string::npos &&
               tree.substr(line, tree.find('\n', line) - line).find("\tyes\t") != std::string::npos;
    }

    std::string output_of_tool(const std::vector<std::string>& arguments) {
        return output_of(m_options.tool_program, arguments);
    }

    std::string output_of(const std::string& program, const std::vector<std::string>& arguments) {
        strlist command = {program};
        command.insert(command.end(), arguments.begin(), arguments.end());
        strlist environment;
        for (char** variable = environ; *variable != nullptr; ++variable) {
            environment.push_back(*variable);
        }
        int status = 0;
        std::vector<unsigned char> output;
        expect(vask_object::spawn_sync(&command, &environment, &status, &output, nullptr, nullptr),
               "the program '" + program + "' starts");
        expect(status == 0, "it ends with status 0");
        return std::string(output.begin(), output.end());
    }

    void name_window() {
        if (m_bridge != nullptr) {
            m_bridge->set_window(0, 0, demo_picture::width, demo_picture::height,
                                 m_window.get_id());
        }
    }

    void expect_child_on_bus() {
        expect(wait_until([this] {
                   return m_bridge->is_main_worker_on_bus() || m_bridge->get_child_pid() < 0;
               }) &&
                   m_bridge->is_main_worker_on_bus(),
               "the child appears on the bus");
    }

    void expect_greeting() {
        const std::string reply = m_bridge->ask(DEMO_CMD_GREET, "parent");
        expect_text(reply, greeting_from(m_bridge->get_child_pid()), "the child's reply");
        say("the reply is: \"" + reply + "\"");
    }

    void expect_end(size_t ends_before, worker_end expected) {
        expect(wait_until([&] { return m_bridge->get_ends().size() > ends_before; }),
               "the end of the child is reported");
        const worker_end end = m_bridge->get_ends().back();
        expect(end.was_asked == expected.was_asked && end.was_main == expected.was_main,
               std::string("the end is reported as ") +
                   (expected.was_asked ? "an exit" : "a crash") + " of the " +
                   (expected.was_main ? "main worker" : "other worker"));
    }

    void expect_picture_of(int pid, const std::string& screenshot) {
        expect_turned_picture_of(pid, demo_picture::turns_of_monitor(), screenshot);
    }

    void expect_turned_picture_of(int pid, int turns, const std::string& screenshot) {
        std::string fault;
        const bool matches = wait_until([&] {
            fault = m_window.find_fault_in_picture(pid, turns);
            return fault.empty();
        });
        const char* const positions[] = {"", ", turned clockwise", ", upside down",
                                         ", turned anticlockwise"};
        const std::string picture = std::to_string(pid) + positions[turns];
        expect(matches, "the window shows the picture of process " + picture + ", but " + fault);
        say("I read in the window's pixels: painted by process " + picture);
        if (!m_options.screenshot_directory.empty()) {
            expect(
                vask_object::make_dir_if_necessary(m_options.screenshot_directory.c_str(), false),
                "the directory '" + m_options.screenshot_directory + "' can be made");
            const std::string file = m_options.screenshot_directory + "/" +
                                     std::to_string(++m_screenshots) + "-" + screenshot + ".ppm";
            expect(m_window.save(file), "the screenshot can be written to '" + file + "'");
        }
    }

    const options& m_options;
    demo_window m_window;
    std::unique_ptr<demo_bridge> m_bridge;
    int m_last_pid = -1;
    int m_step = 0;
    std::string m_left_out;
    int m_screenshots = 0;
};

// The other programs lie beside this one, wherever they were built.
std::string beside_this_program(const std::string& name) {
    char path[PATH_MAX];
    const ssize_t length = readlink("/proc/self/exe", path, sizeof(path));
    const std::string self(path, length > 0 ? static_cast<size_t>(length) : 0);
    return self.substr(0, self.rfind('/') + 1) + name;
}

bool parse(int argc, char** argv, options* result) {
    result->child_program = beside_this_program("demo_child");
    result->tool_program = beside_this_program("demo_ctl");
    result->vaskctl_program = beside_this_program("vaskctl");
    for (int i = 1; i < argc; i += 2) {
        const std::string name = argv[i];
        if (i + 1 == argc) {
            return false;
        }
        if (name == "--child") {
            result->child_program = argv[i + 1];
        } else if (name == "--screenshots") {
            result->screenshot_directory = argv[i + 1];
        } else if (name == "--pause") {
            result->pause_msec = static_cast<unsigned int>(strtoul(argv[i + 1], nullptr, 10));
        } else {
            return false;
        }
    }
    return true;
}

}  // namespace

int main(int argc, char** argv) {
    options wanted;
    if (!parse(argc, argv, &wanted)) {
        fprintf(stderr,
                "usage: %s [--child PROGRAM] [--screenshots DIRECTORY] [--pause MILLISECONDS]\n",
                argv[0]);
        return 2;
    }
    printf(
        "This is a parent, process %d. It is going to start a child, to drive it over the\n"
        "session bus, to lose it, and to start it again. Lines in brackets come from the\n"
        "library.\n",
        getpid());
    demo_stage::stop_on_signals();
    std::string left_out;
    try {
        demonstration story(wanted);
        story.run();
        left_out = story.left_out();
    } catch (const demo_stopped& stopped) {
        printf("\nThe demonstration ends in this step, unfinished: %s.\n", stopped.what());
        return 1;
    }
    if (left_out.empty()) {
        printf("\nEvery step has done what it says.\n");
    } else {
        printf("\nEvery step has done what it says, but these that were left out:%s.\n",
               left_out.c_str());
    }
    return 0;
}
