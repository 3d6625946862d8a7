// Compiled only for the precompiled header that all tests use.
#include <gmock/gmock.h>
