// Apart from its users: a compiler that sees both ends inlined complains of mismatched pairs.
#include <cstdlib>
#include <new>

#include "counting_new.h"

namespace {
thread_local std::uint64_t t_allocations = 0;
} // namespace

std::uint64_t scripted::allocations()
{
    return t_allocations;
}

void *operator new(std::size_t size)
{
    ++t_allocations;
    if (void *block = std::malloc(size == 0 ? 1 : size)) {
        return block;
    }
    throw std::bad_alloc();
}

void operator delete(void *block) noexcept
{
    std::free(block);
}

void operator delete(void *block, std::size_t) noexcept
{
    std::free(block);
}
