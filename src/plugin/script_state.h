// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#ifndef VASK_SCRIPT_STATE_H
#define VASK_SCRIPT_STATE_H

#include <map>
#include <string>

#include "npapi/npruntime.h"

// The private data of a vask_script.
class vask_script_state {
public:
    // What delete_jscb_map() has released and is still in vask_script::jscb_map.
    std::map<std::string, NPObject*> released_jscbs;
};

#endif
