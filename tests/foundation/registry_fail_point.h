#ifndef VASK_TEST_REGISTRY_FAIL_POINT_H
#define VASK_TEST_REGISTRY_FAIL_POINT_H

#include <functional>
#include <string>

/** Runs at every place that the library's source marks, with the name of the place. */
extern std::function<void(const std::string&)> at_fail_point;

#endif
