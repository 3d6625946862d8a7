// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

// Finding a process in the registry, against the calls it is made of and against a scan of the
// process table; and registering beside others that do the same.

#include <dirent.h>
#include <fcntl.h>
#include <glib.h>
#include <signal.h>
#include <spawn.h>
#include <string.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <map>
#include <string>
#include <vector>

#include "table_row.h"
#include "vask_child_cmd.h"
#include "vask_object.h"

namespace {

using clock_type = std::chrono::steady_clock;

constexpr char wanted_program[] = "bench_wanted";
constexpr int sleepers = 150;

class named_object : public vask_object {
public:
    explicit named_object(const char* name) { obj_name = name; }
};

pid_t start_sleeper(const char* path) {
    const pid_t pid = fork();
    if (pid == 0) {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        execl(path, path, "1000", static_cast<char*>(nullptr));
        _exit(127);
    }
    return pid;
}

// Processes that do nothing, one of them with the name that is looked for.
class crowd {
public:
    crowd() {
        char name[] = "/tmp/bench_XXXXXX";
        m_directory = mkdtemp(name);
        m_program = m_directory + "/" + wanted_program;
        if (symlink("/bin/sleep", m_program.c_str()) != 0) {
            abort();
        }
        for (int i = 1; i < sleepers; ++i) {
            m_pids.push_back(start_sleeper("/bin/sleep"));
        }
        m_pids.push_back(start_sleeper(m_program.c_str()));
        const vask_child_cmd_base finder("bench", wanted_program);
        while (finder.find_program().size() != 1) {
            usleep(1000);
        }
    }

    ~crowd() {
        for (const pid_t pid : m_pids) {
            kill(pid, SIGKILL);
        }
        for (const pid_t pid : m_pids) {
            waitpid(pid, nullptr, 0);
        }
        unlink(m_program.c_str());
        rmdir(m_directory.c_str());
    }

    const std::vector<pid_t>& pids() const { return m_pids; }

private:
    std::string m_directory;
    std::string m_program;
    std::vector<pid_t> m_pids;
};

const crowd& present_crowd() {
    static const crowd instance;
    return instance;
}

// A registry with live entries under the name "bench", gone with this object.
class filled_registry {
public:
    explicit filled_registry(int entries) {
        const int fd = shm_open(object_name, O_RDWR | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
        std::vector<unsigned char> bytes(sizeof(pid_array) + sizeof(pid_array_entry) * entries);
        memcpy(&bytes[offsetof(pid_array, count)], &entries, sizeof(entries));
        const std::vector<pid_t>& pids = present_crowd().pids();
        for (int i = 0; i < entries; ++i) {
            pid_array_entry entry = {};
            entry.pid = pids[static_cast<std::size_t>(i) % pids.size()];
            entry.key = static_cast<std::uint64_t>(i) + 1;
            memcpy(&bytes[offsetof(pid_array, entries) + sizeof(entry) * i], &entry, sizeof(entry));
        }
        if (write(fd, bytes.data(), bytes.size()) != static_cast<ssize_t>(bytes.size())) {
            abort();
        }
        close(fd);
    }
    ~filled_registry() { shm_unlink(object_name); }

    static constexpr char object_name[] = "vask_proc_pid_bench";
};

constexpr char filled_registry::object_name[];

// No more than the calls, without care for writers, sizes or results.
template <typename Keep>
void visit_by_bare_calls(int entries, Keep keep) {
    const std::size_t size = offsetof(pid_array, entries) + sizeof(pid_array_entry) * entries;
    const int fd = shm_open(filled_registry::object_name, O_RDONLY, 0);
    void* address = mmap(nullptr, size, PROT_READ, MAP_SHARED, fd, 0);
    const auto* array = static_cast<const pid_array*>(address);
    for (int i = 0; i < array->count; ++i) {
        if (kill(array->entries[i].pid, 0) == 0) {
            keep(array->entries[i]);
        }
    }
    munmap(address, size);
    close(fd);
}

int count_by_bare_calls(int entries) {
    int alive = 0;
    visit_by_bare_calls(entries, [&](const pid_array_entry&) { ++alive; });
    return alive;
}

// As a caller wants them: by their keys.
int map_by_bare_calls(int entries) {
    std::map<unsigned long, int> alive;
    visit_by_bare_calls(entries, [&](const pid_array_entry& entry) {
        alive.emplace_hint(alive.end(), entry.key, entry.pid);
    });
    return static_cast<int>(alive.size());
}

void bare_calls(benchmark::State& state, int entries, int (*find)(int)) {
    const filled_registry registry(entries);
    for (auto _ : state) {
        if (find(entries) != entries) {
            state.SkipWithError("Not all entries are alive");
            break;
        }
    }
}

void counting_calls(benchmark::State& state, int entries) {
    bare_calls(state, entries, count_by_bare_calls);
    is_baseline(state);
}

bool looks_up_all(const vask_object& object, int entries) {
    return object.find_stored_pid_from_shm("bench").size() == static_cast<std::size_t>(entries);
}

// It costs less for few entries: reading is cheaper than mapping.
const char* limit_of_lookup(int entries) {
    return entries == 1 ? "0.60" : entries == 100 ? "0.97" : "1.12";
}

void lookup(benchmark::State& state, int entries) {
    const filled_registry registry(entries);
    const named_object object("bench");
    for (auto _ : state) {
        if (!looks_up_all(object, entries)) {
            state.SkipWithError("Not all entries are found");
            break;
        }
    }
}

bool is_number(const char* text) {
    return text[strspn(text, "0123456789")] == '\0';
}

// The first word of a command line, at most as long as the buffer.
bool is_program(const char* command, const char* program) {
    const char* slash = strrchr(command, '/');
    return strcmp(slash != nullptr ? slash + 1 : command, program) == 0;
}

// No more than the calls, without care for long command lines.
std::vector<int> find_by_bare_calls(const char* program) {
    std::vector<int> pids;
    alignas(dirent64) char entries[32768];
    const int proc = open("/proc", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    ssize_t length = 0;
    while ((length = getdents64(proc, entries, sizeof(entries))) > 0) {
        for (ssize_t offset = 0; offset < length;) {
            const auto* entry = reinterpret_cast<const dirent64*>(&entries[offset]);
            offset += entry->d_reclen;
            if (!is_number(entry->d_name)) {
                continue;
            }
            char path[sizeof(entry->d_name) + sizeof("/cmdline")];
            strcpy(stpcpy(path, entry->d_name), "/cmdline");
            const int file = openat(proc, path, O_RDONLY | O_CLOEXEC);
            char command[1024];
            const ssize_t size = read(file, command, sizeof(command) - 1);
            close(file);
            command[size > 0 ? size : 0] = '\0';
            if (is_program(command, program)) {
                pids.push_back(atoi(entry->d_name));
            }
        }
    }
    close(proc);
    return pids;
}

void bare_scan(benchmark::State& state) {
    present_crowd();
    for (auto _ : state) {
        if (find_by_bare_calls(wanted_program).size() != 1) {
            state.SkipWithError("The program is not found");
            break;
        }
    }
    is_baseline(state);
}

// As a program would do it that has GLib and not this library.
std::vector<int> find_by_bare_glib(const char* program) {
    std::vector<int> pids;
    GDir* directory = g_dir_open("/proc", 0, nullptr);
    while (const gchar* name = g_dir_read_name(directory)) {
        if (!is_number(name)) {
            continue;
        }
        gchar* path = g_build_filename("/proc", name, "cmdline", nullptr);
        gchar* command = nullptr;
        if (g_file_get_contents(path, &command, nullptr, nullptr)) {
            gchar* base = g_path_get_basename(command);
            if (strcmp(base, program) == 0) {
                pids.push_back(atoi(name));
            }
            g_free(base);
            g_free(command);
        }
        g_free(path);
    }
    g_dir_close(directory);
    return pids;
}

void bare_glib_scan(benchmark::State& state) {
    present_crowd();
    for (auto _ : state) {
        if (find_by_bare_glib(wanted_program).size() != 1) {
            state.SkipWithError("The program is not found");
            break;
        }
    }
}

void scan(benchmark::State& state) {
    present_crowd();
    const vask_child_cmd_base finder("bench", wanted_program);
    for (auto _ : state) {
        if (finder.find_program().size() != 1) {
            state.SkipWithError("The program is not found");
            break;
        }
    }
}

void scan_against_bare_calls(benchmark::State& state) {
    scan(state);
    has_ratio_limit(state, "1.05");
}

void scan_as_baseline(benchmark::State& state) {
    scan(state);
    is_baseline(state);
}

void lookup_against_scan(benchmark::State& state) {
    lookup(state, 100);
    // A fifteenth.
    has_ratio_limit(state, "0.0667");
}

void pgrep(benchmark::State& state) {
    present_crowd();
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
    const char* argv[] = {"pgrep", "-x", wanted_program, nullptr};
    for (auto _ : state) {
        pid_t pid = -1;
        int status = -1;
        if (posix_spawnp(&pid, "pgrep", &actions, nullptr, const_cast<char**>(argv), environ) !=
                0 ||
            waitpid(pid, &status, 0) != pid || status != 0) {
            state.SkipWithError("pgrep does not find the program");
            break;
        }
    }
    posix_spawn_file_actions_destroy(&actions);
}

struct start_line {
    std::atomic<int> ready;
    std::atomic<bool> open;
};

constexpr int registrations = 800;

// Until the last of them is through.
void registration(benchmark::State& state, int processes) {
    const int rounds = registrations / processes;
    void* memory = mmap(nullptr, sizeof(start_line), PROT_READ | PROT_WRITE,
                        MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    for (auto _ : state) {
        auto* line = new (memory) start_line();
        std::vector<pid_t> pids;
        for (int i = 0; i < processes; ++i) {
            const pid_t pid = fork();
            if (pid == 0) {
                vask_object::my_pid = getpid();
                named_object object("bench");
                ++line->ready;
                while (!line->open) {
                    usleep(100);
                }
                bool registered = true;
                for (int round = 0; round < rounds; ++round) {
                    registered =
                        object.store_pid_to_shm(static_cast<unsigned long>(i) + 1) && registered;
                }
                _exit(registered ? 0 : 1);
            }
            pids.push_back(pid);
        }
        while (line->ready != processes) {
            usleep(100);
        }
        const clock_type::time_point start = clock_type::now();
        line->open = true;
        bool all_registered = true;
        for (const pid_t pid : pids) {
            int status = -1;
            waitpid(pid, &status, 0);
            all_registered = all_registered && status == 0;
        }
        const std::chrono::duration<double> elapsed = clock_type::now() - start;
        if (!all_registered) {
            state.SkipWithError("A registration failed");
            break;
        }
        state.SetIterationTime(elapsed.count());
    }
    munmap(memory, sizeof(start_line));
    shm_unlink(filled_registry::object_name);
    if (processes == 1) {
        is_baseline(state);
    }
}

bool register_all() {
    for (const int entries : {1, 100, 1000}) {
        const std::string group = "Lookup, registry of " + std::to_string(entries);
        benchmark::RegisterBenchmark((group + "/shm_open, mmap and kill").c_str(),
                                     [entries](benchmark::State& s) { counting_calls(s, entries); })
            ->UseRealTime();
        benchmark::RegisterBenchmark(
            (group + "/shm_open, mmap and kill, into a std::map").c_str(),
            [entries](benchmark::State& s) { bare_calls(s, entries, map_by_bare_calls); })
            ->UseRealTime();
        benchmark::RegisterBenchmark((group + "/find_stored_pid_from_shm").c_str(),
                                     [entries](benchmark::State& s) {
                                         lookup(s, entries);
                                         has_ratio_limit(s, limit_of_lookup(entries));
                                     })
            ->UseRealTime();
    }
    benchmark::RegisterBenchmark("Scan of 150 processes/getdents, openat, read and close",
                                 bare_scan)
        ->UseRealTime();
    benchmark::RegisterBenchmark("Scan of 150 processes/g_dir_read_name and g_file_get_contents",
                                 bare_glib_scan)
        ->UseRealTime();
    benchmark::RegisterBenchmark("Scan of 150 processes/find_program", scan_against_bare_calls)
        ->UseRealTime();
    benchmark::RegisterBenchmark("One program among 150 processes/find_program", scan_as_baseline)
        ->UseRealTime();
    benchmark::RegisterBenchmark(
        "One program among 150 processes/find_stored_pid_from_shm, registry of 100",
        lookup_against_scan)
        ->UseRealTime();
    benchmark::RegisterBenchmark("One program among 150 processes/pgrep -x", pgrep)->UseRealTime();
    for (const int processes : {1, 8}) {
        const std::string name = processes == 1 ? "one process" : "8 processes at once";
        benchmark::RegisterBenchmark(
            ("800 registrations/" + name).c_str(),
            [processes](benchmark::State& s) { registration(s, processes); })
            ->UseManualTime();
    }
    return true;
}

const bool registered = register_all();

}  // namespace
