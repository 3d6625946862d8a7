// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#ifndef VASKCTL_EXAMINATION_H
#define VASKCTL_EXAMINATION_H

#include <string>
#include <vector>

#include "finding.h"
#include "registry.h"
#include "system_view.h"

namespace vaskctl {

// The names of objects, as status prints them and repair takes them.
constexpr char library_lock_object[] = "library-lock";
constexpr char shared_record_object[] = "shared-record";
constexpr char registry_object_prefix[] = "registry:";
constexpr char context_object_prefix[] = "context:";

finding examine_library_lock(const system_view& system);

// The lock's verdict decides whether a record in the middle of a change is still being changed.
finding examine_registry(const std::string& name, const system_view& system, verdict of_lock);

// The shared record, or another object of that kind.
finding examine_context(const std::string& name, const system_view& system);

// All objects of the library that there are: the lock, the registries, the record, the others.
std::vector<finding> examine_system(const system_view& system);

// The worst of them.
verdict worst_of(const std::vector<finding>& findings);

}  // namespace vaskctl

#endif
