// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#ifndef VASKCTL_VERBS_H
#define VASKCTL_VERBS_H

#include <string>
#include <vector>

namespace vaskctl {

// Each runs with the words behind it, and gives the exit status or throws a complaint.
int run_tree(const std::vector<std::string>& words);
int run_status(const std::vector<std::string>& words);
int run_call(const std::vector<std::string>& words);
int run_send(const std::vector<std::string>& words);
int run_record(const std::vector<std::string>& words);
int run_repair(const std::vector<std::string>& words);
int run_monitor(const std::vector<std::string>& words);
int run_log(const std::vector<std::string>& words);

}  // namespace vaskctl

#endif
