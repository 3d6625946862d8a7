// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#ifndef VASK_TEST_BROWSER_TABLE_H
#define VASK_TEST_BROWSER_TABLE_H

#include <dlfcn.h>
#include <npapi/npfunctions.h>

namespace vask_test {

/** The plug-in's copy of the engine's functions. Not vask_np_base::NPNFuncs: who names that has the
 *  linker move it into the program, where the engine does not let the plug-in look for it. */
inline NPNetscapeFuncs& browser_table() {
    return *static_cast<NPNetscapeFuncs*>(dlsym(RTLD_DEFAULT, "_ZN12vask_np_base8NPNFuncsE"));
}

}  // namespace vask_test

#endif
