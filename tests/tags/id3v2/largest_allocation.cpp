// Replaces the global allocation functions of the test program: they allocate
// with malloc as the default ones do, and note the largest request while a
// LargestAllocation is watching.

#include "largest_allocation.h"

#include <atomic>
#include <cstdlib>
#include <new>

namespace {

std::atomic<bool> watching{false};
std::atomic<size_t> largest{0};

void* Allocate(size_t size) {
    if (watching.load(std::memory_order_relaxed)) {
        size_t seen = largest.load(std::memory_order_relaxed);
        while (size > seen && !largest.compare_exchange_weak(seen, size)) {
        }
    }
    void* p = std::malloc(size == 0 ? 1 : size);
    if (p == nullptr) throw std::bad_alloc();
    return p;
}

}  // namespace

void* operator new(size_t size) { return Allocate(size); }
void* operator new[](size_t size) { return Allocate(size); }
void operator delete(void* p) noexcept { std::free(p); }
void operator delete[](void* p) noexcept { std::free(p); }
void operator delete(void* p, size_t) noexcept { std::free(p); }
void operator delete[](void* p, size_t) noexcept { std::free(p); }

LargestAllocation::LargestAllocation() {
    largest = 0;
    watching = true;
}
LargestAllocation::~LargestAllocation() { watching = false; }
size_t LargestAllocation::Largest() const { return largest; }
