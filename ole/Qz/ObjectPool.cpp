#include "Qz/ObjectPool.h"

#include <array>
#include <atomic>
#include <bit>
#include <cstdint>
#include <mutex>
#include <new>
#include <string>
#include <vector>

namespace Qz {

namespace {

constexpr std::size_t alignment = alignof(std::max_align_t);
constexpr std::uint32_t none = 0xFFFFFFFFu;
constexpr std::uint32_t firstChunkBlocks = 64;
constexpr std::size_t bytesMax = PTRDIFF_MAX;
constexpr std::size_t chunksMax = 25;  // each twice the one before: 2^31 blocks in all

constexpr std::size_t roundedUp(std::size_t bytes) { return (bytes + alignment - 1) / alignment * alignment; }

// Stands before each block. next is read by takers that lost the race for this block, so it is atomic
// and its memory is never given back.
struct alignas(alignment) Node
{
    std::atomic<std::uint32_t> next{none};
    std::uint32_t index = none;
};

// The list's head: a block index and the tag, in one word that every processor can exchange at once.
struct Head
{
    std::uint32_t index;
    std::uint32_t tag;

    static Head unpack(std::uint64_t word)
    {
        return {static_cast<std::uint32_t>(word), static_cast<std::uint32_t>(word >> 32)};
    }
    [[nodiscard]] std::uint64_t pack() const { return std::uint64_t{tag} << 32 | index; }
};

}  // namespace

struct ObjectPool::State
{
    explicit State(std::size_t bytes) : blockSize(bytes), stride(sizeof(Node) + roundedUp(bytes)) {}

    const std::size_t blockSize;
    const std::size_t stride;
    std::atomic<std::uint64_t> head{Head{none, 0}.pack()};
    std::array<std::atomic<std::byte*>, chunksMax> chunks{};
    std::atomic<std::size_t> inUse{0};
    std::mutex growing;
    std::size_t chunkCount = 0;  // under growing

    // Index i lies in chunk floor(log2(i / 64 + 1)).
    Node& node(std::uint32_t index)
    {
        const auto chunk = static_cast<std::size_t>(std::bit_width(index / firstChunkBlocks + 1) - 1);
        const std::uint32_t offset = index - firstIndex(chunk);
        return nodeIn(chunks[chunk].load(std::memory_order_acquire), offset);
    }
    static std::uint32_t firstIndex(std::size_t chunk) { return ((1u << chunk) - 1) * firstChunkBlocks; }
    static std::uint32_t blocksIn(std::size_t chunk) { return firstChunkBlocks << chunk; }
    Node& nodeIn(std::byte* chunk, std::uint32_t offset) const
    {
        return *std::launder(reinterpret_cast<Node*>(chunk + offset * stride));
    }

    Node* pop();
    void push(Node& first, Node& last);
    Node* grow();
    Node* addChunk();
};

Node* ObjectPool::State::pop()
{
    std::uint64_t seen = head.load(std::memory_order_acquire);
    for (;;) {
        const Head top = Head::unpack(seen);
        if (top.index == none)
            return nullptr;
        Node& taken = node(top.index);
        const Head rest{taken.next.load(std::memory_order_relaxed), top.tag + 1};
        if (head.compare_exchange_weak(seen, rest.pack(), std::memory_order_acq_rel,
                                       std::memory_order_acquire))
            return &taken;
    }
}

void ObjectPool::State::push(Node& first, Node& last)
{
    std::uint64_t seen = head.load(std::memory_order_relaxed);
    std::uint64_t wanted = 0;
    do {
        const Head top = Head::unpack(seen);
        last.next.store(top.index, std::memory_order_relaxed);
        wanted = Head{first.index, top.tag}.pack();
    } while (!head.compare_exchange_weak(seen, wanted, std::memory_order_release, std::memory_order_relaxed));
}

Node* ObjectPool::State::grow()
{
    const std::lock_guard<std::mutex> hold(growing);
    if (Node* given = pop())  // somebody else grew the pool, or gave a block back
        return given;
    return addChunk();
}

// Keeps the first block of the new chunk for the caller and lists the others.
Node* ObjectPool::State::addChunk()
{
    if (chunkCount == chunksMax)
        return nullptr;
    const std::uint32_t blocks = blocksIn(chunkCount);
    if (stride > bytesMax / blocks)
        return nullptr;
    const std::size_t bytes = stride * blocks;
    auto* memory = static_cast<std::byte*>(::operator new(bytes, std::nothrow));
    if (!memory)
        return nullptr;
    const std::uint32_t base = firstIndex(chunkCount);
    for (std::uint32_t i = 0; i < blocks; ++i) {
        Node* made = new (memory + i * stride) Node;
        made->index = base + i;
        made->next.store(base + i + 1, std::memory_order_relaxed);
    }
    chunks[chunkCount++].store(memory, std::memory_order_release);
    push(nodeIn(memory, 1), nodeIn(memory, blocks - 1));
    return &nodeIn(memory, 0);
}

ObjectPool::ObjectPool(std::size_t blockSize) : state_(new State(blockSize)) {}

ObjectPool& ObjectPool::named(const char* name, std::size_t blockSize)
{
    struct Named
    {
        std::string name;
        ObjectPool* pool;
    };
    // Never destroyed, like the pools: commands are made and dropped until the very end.
    static std::mutex* const guard = new std::mutex;
    static std::vector<Named>* const pools = new std::vector<Named>;

    const std::lock_guard<std::mutex> hold(*guard);
    for (const Named& known : *pools)
        if (known.name == name && known.pool->blockSize() == blockSize)
            return *known.pool;
    pools->push_back({name, new ObjectPool(blockSize)});
    return *pools->back().pool;
}

void* ObjectPool::take()
{
    Node* taken = state_->pop();
    if (!taken)
        taken = state_->grow();
    if (!taken)
        return nullptr;
    state_->inUse.fetch_add(1, std::memory_order_relaxed);
    return taken + 1;
}

void ObjectPool::give(void* block)
{
    if (!block)
        return;
    Node& given = *(static_cast<Node*>(block) - 1);
    state_->inUse.fetch_sub(1, std::memory_order_relaxed);
    state_->push(given, given);
}

std::size_t ObjectPool::blockSize() const { return state_->blockSize; }

std::size_t ObjectPool::blocksInUse() const { return state_->inUse.load(std::memory_order_relaxed); }

}  // namespace Qz
