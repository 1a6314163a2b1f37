// The process heap: blocks with guards before and after them, so that an overrun is found by HeapValidate, by the next
// release and at the end. The memory itself is the host's, so the sanitizers watch it too.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>

namespace machine {

class Heap {
public:
    ~Heap();
    void* Allocate(std::size_t size, const char* call); // zero-filled; null never
    bool Free(void* block);                             // false: no such block, or its guards are broken
    bool Owns(const void* block) const;
    std::size_t Size(const void* block) const; // size_t(-1) if there is no such block
    bool Validate() const;                     // every block's guards
    std::size_t Bytes() const { return m_bytes; }
    std::size_t Blocks() const { return m_count; }
    void FreeAll();
    // An address inside a block as a number that is the same in each run; 0 if it is in none.
    std::uint64_t StableAddress(const void* address) const;

private:
    struct Block;
    Block* m_first = nullptr; // newest first
    std::size_t m_bytes = 0, m_count = 0;
    std::uint64_t m_nextAddress = 0x00020000;
    std::map<const void*, Block*> m_blocks;
};

} // namespace machine
