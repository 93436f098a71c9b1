#ifndef CSV2SQL_LIST_H
#define CSV2SQL_LIST_H

#include "util/internal/heap.h"

#include <utility>

namespace csv2sql
{

using kutil::Heap;
using kutil::HeapText;
using kutil::View;

// A growing array of plain records. Running out of memory ends the process.
template <class T>
class List
{
public:
    List() = default;
    List(const List &) = delete;
    List &operator=(const List &) = delete;
    ~List() { free(items_); }

    void add(const T &item)
    {
        const T copy = item;
        if (count_ == room_)
            reserve(kutil::add_sizes(room_, room_ / 2, 16));
        items_[count_++] = copy;
    }
    void resize(size_t count, const T &filler)
    {
        if (count > room_)
            reserve(count);
        for (; count_ < count; count_++)
            items_[count_] = filler;
        count_ = count;
    }
    void clear() { count_ = 0; }
    size_t size() const { return count_; }
    bool empty() const { return count_ == 0; }
    T &operator[](size_t i) { return items_[i]; }
    const T &operator[](size_t i) const { return items_[i]; }
    T *data() { return items_; }
    const T *begin() const { return items_; }
    const T *end() const { return items_ + count_; }

private:
    void reserve(size_t room)
    {
        items_ = kutil::grow_array(items_, room);
        room_ = room;
    }

    T *items_ = nullptr;
    size_t count_ = 0;
    size_t room_ = 0;
};

// Texts that live as long as this does and never move.
class Arena
{
public:
    Arena() = default;
    Arena(const Arena &) = delete;
    Arena &operator=(const Arena &) = delete;
    ~Arena()
    {
        for (char *block : blocks_)
            free(block);
    }

    char *room(size_t size)
    {
        if (size > left_) {
            left_ = size > kBlock ? size : kBlock;
            next_ = kutil::new_text(left_);
            blocks_.add(next_);
        }
        left_ -= size;
        return std::exchange(next_, next_ + size);
    }
    const char *keep(View text)
    {
        char *copy = room(text.size() + 1);
        *kutil::put(copy, text) = '\0';
        return copy;
    }

private:
    static constexpr size_t kBlock = 256 * 1024;
    List<char *> blocks_;
    char *next_ = nullptr;
    size_t left_ = 0;
};

// A hash table of numbers from 0; what they stand for, the caller compares.
class Index
{
public:
    static constexpr uint32_t kNone = UINT32_MAX;

    // The first number added under `hash` for which same(number) holds, or kNone.
    template <class Same>
    uint32_t find(uint32_t hash, const Same &same) const
    {
        if (slots_.empty())
            return kNone;
        for (size_t at = hash & mask();; at = (at + 1) & mask()) {
            const Slot &slot = slots_[at];
            if (slot.number == kNone || (slot.hash == hash && same(slot.number)))
                return slot.number;
        }
    }
    void add(uint32_t hash, uint32_t number)
    {
        if (count_ * 2 >= slots_.size())
            grow();
        place(hash, number);
        count_++;
    }

private:
    struct Slot {
        uint32_t hash, number;
    };
    size_t mask() const { return slots_.size() - 1; }
    void place(uint32_t hash, uint32_t number)
    {
        size_t at = hash & mask();
        while (slots_[at].number != kNone)
            at = (at + 1) & mask();
        slots_[at] = {hash, number};
    }
    void grow()
    {
        List<Slot> old;
        for (const Slot &slot : slots_)
            old.add(slot);
        const size_t size = old.empty() ? 64 : old.size() * 2;
        slots_.clear();
        slots_.resize(size, {0, kNone});
        for (const Slot &slot : old) {
            if (slot.number != kNone)
                place(slot.hash, slot.number);
        }
    }

    List<Slot> slots_;
    size_t count_ = 0;
};

// Ignoring the case of letters, as names of fields are compared.
inline uint32_t hash_text(View text)
{
    uint32_t hash = 2166136261U;
    for (const char c : text)
        hash = (hash ^ static_cast<unsigned char>(kutil::to_lower(c))) * 16777619U;
    return hash ^ hash >> 15;
}

inline uint32_t hash_number(uint64_t number)
{
    number *= 0x9e3779b97f4a7c15ULL;
    return static_cast<uint32_t>(number >> 32);
}

} // namespace csv2sql

#endif
