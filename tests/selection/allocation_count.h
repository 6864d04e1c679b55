#pragma once

/// Heap allocations made so far by the program's own objects. The test program is linked so that its calls of malloc,
/// calloc, realloc and operator new pass through counters (see CMakeLists.txt).
long AllocationCount();
