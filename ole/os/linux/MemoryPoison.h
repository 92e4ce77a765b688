#pragma once

#include <cstddef>

#if defined(__SANITIZE_ADDRESS__)
#define OS_ADDRESS_SANITIZER 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define OS_ADDRESS_SANITIZER 1
#endif
#endif

// Memory that is kept for reuse is nobody's: with the address sanitizer, touching it is an error.
#ifdef OS_ADDRESS_SANITIZER
#include <sanitizer/asan_interface.h>
inline void poisonMemory(void* memory, std::size_t size) { __asan_poison_memory_region(memory, size); }
inline void unpoisonMemory(void* memory, std::size_t size) { __asan_unpoison_memory_region(memory, size); }
#else
inline void poisonMemory(void*, std::size_t) {}
inline void unpoisonMemory(void*, std::size_t) {}
#endif
