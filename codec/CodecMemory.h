// How the codec's objects hold memory: they allocate when they open, own what they
// allocate in a std::unique_ptr, and report shortage as their failure result.
#pragma once

#include "platform/PrivateHeader.h"

#include <cstddef>
#include <memory>
#include <new>

// An array of nCount value-initialised elements, or null when memory is short.
template <class T>
std::unique_ptr<T[]> AllocateArray(std::size_t nCount)
{
    return std::unique_ptr<T[]>(new (std::nothrow) T[nCount]());
}
