#pragma once
// Watches the largest single heap request while an object of this type lives,
// so that the benchmark can show that a lying size field costs no large allocation.

#include <cstddef>

class LargestAllocation {
public:
    LargestAllocation();
    LargestAllocation(const LargestAllocation&) = delete;
    LargestAllocation& operator=(const LargestAllocation&) = delete;
    ~LargestAllocation();
    size_t Largest() const;
    // False in sanitizer builds, where nothing is watched.
    static bool Available();
};
