#ifndef VASK_TEST_SYSTEM_CALL_COUNT_H
#define VASK_TEST_SYSTEM_CALL_COUNT_H

#include <sys/types.h>

#include <functional>
#include <iosfwd>
#include <map>

#include "shared_info/system_call_mark.h"

struct system_call_count {
    std::map<long, int> by_number;
    int all = 0;
    bool is_complete = false;  // both marks were seen
    int exit_status = -1;
};

void PrintTo(const system_call_count& count, std::ostream* out);

/** Runs a function in a forked child under trace, which sets the marks. */
system_call_count count_system_calls(const std::function<int()>& work);

#endif
