// Replaces the global allocation functions of the benchmark program: they allocate
// with malloc as the default ones do, and note the largest request while a
// LargestAllocation is watching. Sanitizer runtimes bring allocation functions
// of their own, so there nothing is replaced and nothing is watched.

#include "largest_allocation.h"

#include <atomic>
#include <cstdlib>
#include <new>

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define FD_SANITIZED 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
#define FD_SANITIZED 1
#endif
#endif

namespace {

std::atomic<bool> watching{false};
std::atomic<size_t> largest{0};

#ifndef FD_SANITIZED
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
#endif

}  // namespace

#ifndef FD_SANITIZED
void* operator new(size_t size) { return Allocate(size); }
void* operator new[](size_t size) { return Allocate(size); }
void operator delete(void* p) noexcept { std::free(p); }
void operator delete[](void* p) noexcept { std::free(p); }
void operator delete(void* p, size_t) noexcept { std::free(p); }
void operator delete[](void* p, size_t) noexcept { std::free(p); }
#endif

LargestAllocation::LargestAllocation() {
    largest = 0;
    watching = true;
}
LargestAllocation::~LargestAllocation() { watching = false; }
size_t LargestAllocation::Largest() const { return largest; }
#ifdef FD_SANITIZED
bool LargestAllocation::Available() { return false; }
#else
bool LargestAllocation::Available() { return true; }
#endif
