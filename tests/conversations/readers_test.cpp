// Readers of the last answer that no part of the agent calls.
#include <gtest/gtest.h>
namespace korvane {}
