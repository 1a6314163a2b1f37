#include "simwin/kernel/Heap.h"

#include "simwin/kernel/Rules.h"

#include <cstdlib>
#include <cstring>

namespace machine {

constexpr std::uint64_t FrontGuard = 0x51B10C6F0A11D00Dull;
constexpr std::uint64_t BackGuard = 0x51B10C6BAC6D00Dull;
constexpr std::size_t NoSize = static_cast<std::size_t>(-1);

struct Heap::Block {
    Block *next, *previous;
    std::size_t size;
    std::uint64_t address; // what the block's address looks like to the product
    const char* call;
    std::uint64_t guard;

    void* Data() { return this + 1; }
    bool Whole() const {
        std::uint64_t back;
        std::memcpy(&back, reinterpret_cast<const char*>(this + 1) + size, sizeof(back));
        return guard == FrontGuard && back == BackGuard;
    }
};

Heap::~Heap() {
    FreeAll();
}

void* Heap::Allocate(std::size_t size, const char* call) {
    auto* block = static_cast<Block*>(std::calloc(1, sizeof(Block) + size + sizeof(BackGuard)));
    if (!block) {
        StopRun(Verdict::Crash, "the host is out of memory");
    }
    block->next = m_first;
    block->size = size;
    block->address = m_nextAddress;
    block->call = call;
    block->guard = FrontGuard;
    std::memcpy(static_cast<char*>(block->Data()) + size, &BackGuard, sizeof(BackGuard));
    if (m_first) {
        m_first->previous = block;
    }
    m_first = block;
    m_nextAddress += (size + 31) / 16 * 16;
    m_bytes += size;
    ++m_count;
    m_blocks.emplace(block->Data(), block);
    return block->Data();
}

bool Heap::Owns(const void* data) const {
    return m_blocks.contains(data);
}

std::size_t Heap::Size(const void* data) const {
    const auto found = m_blocks.find(data);
    return found == m_blocks.end() ? NoSize : found->second->size;
}

bool Heap::Free(void* data) {
    const auto found = m_blocks.find(data);
    if (found == m_blocks.end() || !found->second->Whole()) {
        return false;
    }
    Block* block = found->second;
    m_blocks.erase(found);
    (block->previous ? block->previous->next : m_first) = block->next;
    if (block->next) {
        block->next->previous = block->previous;
    }
    m_bytes -= block->size;
    --m_count;
    std::free(block);
    return true;
}

bool Heap::Validate() const {
    for (const Block* block = m_first; block; block = block->next) {
        if (!block->Whole()) {
            return false;
        }
    }
    return true;
}

void Heap::FreeAll() {
    while (m_first) {
        Block* next = m_first->next;
        std::free(m_first);
        m_first = next;
    }
    m_blocks.clear();
    m_bytes = m_count = 0;
}

std::uint64_t Heap::StableAddress(const void* address) const {
    auto after = m_blocks.upper_bound(address);
    if (after == m_blocks.begin()) {
        return 0;
    }
    --after;
    const auto offset =
        static_cast<std::size_t>(static_cast<const char*>(address) - static_cast<const char*>(after->first));
    return offset <= after->second->size ? after->second->address + offset : 0;
}

} // namespace machine
