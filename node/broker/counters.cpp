// counters.cpp - reads what programs count of their conversations.
#include "broker/counters.hpp"

#include <algorithm>
#include <cstring>
#include <fcntl.h>
#include <linux/magic.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/vfs.h>

namespace broker {

namespace {

constexpr int readings = 8; // of one slot, until two agree

bool same(const wire::conversation_counters &a, const wire::conversation_counters &b)
{
    return std::memcmp(&a, &b, sizeof a) == 0;
}

// The program writes while this reads, and a count is two words to a 32-bit program.
wire::conversation_counters slot_now(const wire::conversation_counters &slot)
{
    wire::conversation_counters first;
    wire::conversation_counters second;
    std::memcpy(&first, &slot, sizeof first);
    for (int i = 1; i < readings; ++i)
    {
        __atomic_thread_fence(__ATOMIC_SEQ_CST);
        std::memcpy(&second, &slot, sizeof second);
        if (same(first, second))
        {
            break;
        }
        first = second;
    }
    return first;
}

} // namespace

counter_view::~counter_view()
{
    if (table_ != nullptr)
    {
        munmap(const_cast<wire::counter_table *>(table_), sizeof *table_);
    }
}

bool counter_view::proper(int fd)
{
    struct stat found;
    struct statfs system;
    int seals = fcntl(fd, F_GET_SEALS);
    return seals >= 0 && (seals & F_SEAL_SHRINK) != 0 && fstat(fd, &found) == 0 && S_ISREG(found.st_mode) &&
           found.st_size == static_cast<off_t>(sizeof(wire::counter_table)) && fstatfs(fd, &system) == 0 &&
           system.f_type == TMPFS_MAGIC; // memory in huge pages can run out after it has been mapped
}

bool counter_view::open(int fd)
{
    void *mapped = mmap(nullptr, sizeof(wire::counter_table), PROT_READ, MAP_SHARED, fd, 0);
    if (mapped == MAP_FAILED)
    {
        return false;
    }
    table_ = static_cast<const wire::counter_table *>(mapped);
    return true;
}

std::vector<wire::conversation_counters> counter_view::read() const
{
    std::vector<wire::conversation_counters> slots;
    if (table_ == nullptr)
    {
        return slots;
    }
    // Slots that were never used have no memory behind them, and reading them would give them some.
    std::uint32_t used = std::min(__atomic_load_n(&table_->used, __ATOMIC_RELAXED), wire::counter_slots);
    for (std::uint32_t i = 0; i < used; ++i)
    {
        wire::conversation_counters slot = slot_now(table_->slots[i]);
        if (slot.session != 0)
        {
            slots.push_back(slot);
        }
    }
    return slots;
}

void add_counted(counted_ends &ends, const exchange &books, connection_id program,
                 const std::vector<wire::conversation_counters> &slots)
{
    for (const wire::conversation_counters &slot : slots)
    {
        auto found = books.sessions().find(slot.session);
        bool allocating = slot.allocating != 0;
        if (found != books.sessions().end() &&
            (allocating ? found->second.allocator : found->second.acceptor) == program)
        {
            ends[{slot.session, allocating}] = slot;
        }
    }
}

const char *conversation_state_text(std::uint8_t state)
{
    switch (state) // the values that GET_STATE returns
    {
    case 0:
        return "reset";
    case 1:
        return "send";
    case 2:
        return "receive";
    case 3:
        return "confirm";
    case 4:
        return "confirm send";
    case 5:
        return "confirm deallocate";
    case 9:
        return "send pending";
    default:
        return "unknown";
    }
}

} // namespace broker
