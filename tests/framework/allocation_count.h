#pragma once

// The heap allocation count of allocation_test.cpp, for tests in other files
// of the render model test program: counts the allocations this thread makes
// between start and stop. Counting runs in the ordinary build only
// (sanitizers bring their own allocator); OrvoTestAllocationsAreCounted
// says so.

bool OrvoTestAllocationsAreCounted();
void OrvoTestStartCountingAllocations();
// Stops counting and gives the number of allocations since the start.
long OrvoTestStopCountingAllocations();
