// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include "private_world.h"

#include <dirent.h>
#include <fcntl.h>
#include <net/if.h>
#include <net/route.h>
#include <netinet/in.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/mount.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <string>
#include <vector>

namespace vask_test {

namespace {

std::string failure(const std::string& what) {
    return what + ": " + std::strerror(errno);
}

bool write_file(const char* path, const std::string& text) {
    const int fd = open(path, O_WRONLY | O_CLOEXEC);
    if (fd < 0) {
        return false;
    }
    const bool written = write(fd, text.data(), text.size()) == static_cast<ssize_t>(text.size());
    close(fd);
    return written;
}

std::string unshare_all() {
    // The network namespace also separates the abstract sockets, by which display servers of
    // parallel runs and of the machine would meet.
    const int wanted = CLONE_NEWNS | CLONE_NEWPID | CLONE_NEWIPC | CLONE_NEWNET;
    if (geteuid() == 0 && unshare(wanted) == 0) {
        return "";
    }

    const std::string uid = std::to_string(geteuid());
    const std::string gid = std::to_string(getegid());
    if (unshare(wanted | CLONE_NEWUSER) != 0) {
        return failure("no private namespaces");
    }
    if (!write_file("/proc/self/setgroups", "deny") ||
        !write_file("/proc/self/uid_map", uid + " " + uid + " 1") ||
        !write_file("/proc/self/gid_map", gid + " " + gid + " 1")) {
        return failure("no user mapping");
    }
    return "";
}

void set_address(sockaddr& place, in_addr_t address) {
    sockaddr_in ipv4 = {};
    ipv4.sin_family = AF_INET;
    ipv4.sin_addr.s_addr = htonl(address);
    std::memcpy(&place, &ipv4, sizeof ipv4);
}

// A new network has only a loopback interface, and that is down. It also carries the broadcasts,
// because there is no other interface.
std::string bring_up_loopback() {
    char loopback[] = "lo";
    ifreq interface = {};
    std::strcpy(interface.ifr_name, loopback);
    interface.ifr_flags = IFF_UP;

    rtentry route = {};
    set_address(route.rt_dst, INADDR_BROADCAST);
    set_address(route.rt_genmask, INADDR_BROADCAST);
    route.rt_flags = RTF_UP | RTF_HOST;
    route.rt_dev = loopback;

    const int fd = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    const bool is_up =
        fd >= 0 && ioctl(fd, SIOCSIFFLAGS, &interface) == 0 && ioctl(fd, SIOCADDRT, &route) == 0;
    const std::string error = is_up ? "" : failure("no private loopback interface");
    if (fd >= 0) {
        close(fd);
    }
    return error;
}

bool bind_into_tmp(const char* name, mode_t mode) {
    const std::string target = std::string("/tmp/") + name;
    if (S_ISDIR(mode)) {
        if (mkdir(target.c_str(), 0755) != 0) {
            return false;
        }
    } else {
        const int fd = open(target.c_str(), O_CREAT | O_WRONLY | O_CLOEXEC, 0600);
        if (fd < 0) {
            return false;
        }
        close(fd);
    }
    return mount(name, target.c_str(), nullptr, MS_BIND | MS_REC, nullptr) == 0;
}

// Build trees may live in /tmp, so its directories stay; its sockets, locks and files go.
std::string make_private_tmp(const std::string& program) {
    char cwd[PATH_MAX];
    if (!getcwd(cwd, sizeof cwd)) {
        return failure("no current directory");
    }
    DIR* old_tmp = opendir("/tmp");
    if (!old_tmp) {
        return failure("/tmp");
    }
    if (mount("tmpfs", "/tmp", "tmpfs", MS_NOSUID | MS_NODEV, "mode=1777") != 0 ||
        fchdir(dirfd(old_tmp)) != 0) {
        closedir(old_tmp);
        return failure("no private /tmp");
    }
    while (const dirent* entry = readdir(old_tmp)) {
        struct stat info;
        if (entry->d_name[0] == '.' || lstat(entry->d_name, &info) != 0) {
            continue;
        }
        const bool is_program =
            S_ISREG(info.st_mode) && program == "/tmp/" + std::string(entry->d_name);
        if (S_ISDIR(info.st_mode) || is_program) {
            bind_into_tmp(entry->d_name, info.st_mode);
        }
    }
    closedir(old_tmp);
    if (chdir(cwd) != 0 && chdir("/") != 0) {
        return failure(cwd);
    }
    return "";
}

// An X server that root runs compiles its keymap here, into a file that is named after the
// display's number: the same in every private world.
std::string make_private_keymaps() {
    const char* directory = "/var/lib/xkb";
    if (access(directory, F_OK) == 0 &&
        mount("tmpfs", directory, "tmpfs", MS_NOSUID | MS_NODEV, "mode=0755") != 0) {
        return failure("no private keymaps");
    }
    return "";
}

// In a chroot the root is not a mount of its own. Then the mounts below it are made private.
bool make_visible_mounts_private() {
    std::ifstream mounts("/proc/self/mounts");
    std::string source, target, rest;
    while (mounts >> source >> target && std::getline(mounts, rest)) {
        if (mount(nullptr, target.c_str(), nullptr, MS_PRIVATE, nullptr) != 0 && errno != EINVAL) {
            return false;
        }
    }
    return true;
}

bool make_mounts_private() {
    return mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0 ||
           (errno == EINVAL && make_visible_mounts_private());
}

}  // namespace

std::string enter_private_world(const std::string& program) {
    char* resolved = realpath(program.c_str(), nullptr);
    const std::string program_path = resolved ? resolved : "";
    std::free(resolved);

    std::string error = unshare_all();
    if (error.empty()) {
        error = bring_up_loopback();
    }
    if (!error.empty()) {
        return error;
    }
    if (!make_mounts_private()) {
        return failure("no private mounts");
    }
    if (mount("tmpfs", "/dev/shm", "tmpfs", MS_NOSUID | MS_NODEV, "mode=1777") != 0) {
        return failure("no private /dev/shm");
    }
    const std::string no_keymaps = make_private_keymaps();
    return no_keymaps.empty() ? make_private_tmp(program_path) : no_keymaps;
}

std::string mount_private_proc() {
    if (mount("proc", "/proc", "proc", MS_NOSUID | MS_NODEV | MS_NOEXEC, nullptr) != 0) {
        return failure("no private /proc");
    }
    return "";
}

void seal_environment(const std::string& directory) {
    const std::string runtime = directory + "/runtime";
    const std::string temporary = directory + "/tmp";
    umask(022);
    mkdir(directory.c_str(), 0700);
    mkdir(runtime.c_str(), 0700);
    mkdir(temporary.c_str(), 0700);
    // In the open world it is the machine's, and may be whatever somebody has made of it.
    if (mkdir("/tmp/.X11-unix", 0777) == 0) {
        chmod("/tmp/.X11-unix", 01777);
    }

    std::vector<std::string> settings;
    for (char** variable = environ; *variable; ++variable) {
        const std::string name(*variable, std::strcspn(*variable, "="));
        if (name.rfind("VASK_", 0) == 0 && name.rfind("VASK_TEST_", 0) != 0) {
            settings.push_back(name);
        }
    }
    for (const std::string& name : settings) {
        unsetenv(name.c_str());
    }
    for (const char* name : {"DISPLAY", "WAYLAND_DISPLAY", "XAUTHORITY", "DBUS_STARTER_ADDRESS",
                             "DBUS_STARTER_BUS_TYPE"}) {
        unsetenv(name);
    }
    setenv("DBUS_SESSION_BUS_ADDRESS", "unix:path=/nonexistent/bus", 1);
    setenv("DBUS_SYSTEM_BUS_ADDRESS", "unix:path=/nonexistent/bus", 1);
    setenv("XDG_RUNTIME_DIR", runtime.c_str(), 1);
    setenv("TMPDIR", temporary.c_str(), 1);
}

}  // namespace vask_test
