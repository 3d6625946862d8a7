#ifndef VASK_TEST_PRIVATE_SERVERS_H
#define VASK_TEST_PRIVATE_SERVERS_H

#include <signal.h>
#include <sys/types.h>

#include <string>
#include <vector>

namespace vask_test {

/** Starts a program in a session of its own, with the signal mask given. */
pid_t spawn(const std::vector<std::string>& command, const sigset_t& mask,
            const std::string& log_path = "", int inherited_fd = -1);

/** A server that announces on a pipe where it can be reached, once it can be. */
class private_server {
public:
    pid_t pid() const { return pid_; }

    void start_bus(const sigset_t& mask);
    void start_display(const sigset_t& mask);

    /** The announced line, or "" when the server ended or needed too long. */
    std::string wait_for_address(int deadline_msec);
    std::string log() const;

private:
    void start(const std::string& name, std::vector<std::string> command, const sigset_t& mask);

    std::string log_path_;
    pid_t pid_ = -1;
    int announcement_ = -1;
};

}  // namespace vask_test

#endif
