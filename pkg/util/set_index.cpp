// The sons of one node: index lists, sorting, searching.

#include "set_mask.h"

#include "internal/heap.h"
#include "internal/number.h"
#include "internal/report.h"
#include "internal/set_node.h"
#include "str.h"

#include <algorithm>
#include <charconv>

using namespace kutil;

namespace
{

constexpr bool has_several_bits(uint32_t mask) { return (mask & (mask - 1)) != 0; }

class Decimal
{
public:
    explicit Decimal(int n) { *std::to_chars(text_, text_ + sizeof(text_) - 1, n).ptr = '\0'; }
    const char *c_str() const { return text_; }

private:
    char text_[12];
};

int number_of(const set *node) { return parse_i32(node->value); }

// Where a new index goes, and which; a NULL place: nowhere. The number may be one too many for an int.
struct Slot {
    set **place;
    int64_t number;
};

// Behind the last visible son.
Slot slot_at_end(set *list, uint32_t mask, int first_number)
{
    set *last = nullptr;
    for (set *son = list->sons; son; son = son->next) {
        if (in_mask(son, mask))
            last = son;
    }
    return last ? Slot{&last->next, int64_t{number_of(last)} + 1} : Slot{&list->sons, first_number};
}

// At the first gap. Deliberate: every son that is passed counts as one, whatever its number, so that from 1
// the sons "0", "1" give 3.
Slot slot_at_gap(set *list, uint32_t mask, int first_number)
{
    Slot slot = {&list->sons, first_number};
    while (in_mask(*slot.place, mask) && number_of(*slot.place) <= slot.number) {
        slot.number++;
        slot.place = &(*slot.place)->next;
    }
    return slot;
}

set **find_number_from(set **place, uint32_t mask, int64_t least)
{
    while (*place && !(in_mask(*place, mask) && number_of(*place) >= least))
        place = &(*place)->next;
    return *place ? place : nullptr;
}

// At this number. The sons that stand there move up by one, as far as they follow one another; the one that
// would get a number too large for an int makes it impossible.
Slot slot_at_number(set *list, uint32_t mask, int index)
{
    set **place = &list->sons;
    while (*place && number_of(*place) < index)
        place = &(*place)->next;
    if (!in_mask(*place, mask) || number_of(*place) != index)
        return {place, index};
    int64_t end = index;
    for (const set *son = *place; in_mask(son, mask) && number_of(son) <= end; son = son->next)
        end++;
    if (end > INT32_MAX)
        return {nullptr, 0};
    for (int64_t number = end; number > index; number--) {
        // There may be none: names that are no numbers count as 0.
        if (set **moved = find_number_from(&list->sons, mask, number - 1))
            tree_rename_int(moved, mask, static_cast<int>(number));
    }
    return {place, index};
}

Slot find_slot(set *list, uint32_t mask, int index)
{
    switch (index) {
    case -1:
        return slot_at_end(list, mask, 0);
    case -2:
        return slot_at_gap(list, mask, 0);
    case -3:
        return slot_at_end(list, mask, 1);
    case -4:
        return slot_at_gap(list, mask, 1);
    default:
        return index >= 0 ? slot_at_number(list, mask, index) : Slot{nullptr, 0};
    }
}

// Sorts by merging runs of doubling length; equal ones keep their order.
template <class Item, class IsBehind>
void sort_stably(Item *items, size_t count, IsBehind is_behind)
{
    const Heap<Item> space(new_array<Item>(count));
    Item *from = items;
    Item *to = space.get();
    for (size_t run = 1; run < count; run = mul_sizes(run, 2)) {
        Item *out = to;
        for (size_t start = 0; start < count;) {
            Item *left = from + start;
            Item *right = from + std::min(count, add_sizes(start, run));
            Item *const left_end = right;
            Item *const right_end = from + std::min(count, add_sizes(start, run, run));
            while (left < left_end && right < right_end)
                *out++ = is_behind(*left, *right) ? *right++ : *left++;
            out = std::copy(left, left_end, out);
            out = std::copy(right, right_end, out);
            start = static_cast<size_t>(right_end - from);
        }
        std::swap(from, to);
    }
    if (from != items)
        std::copy(from, from + count, items);
}

const char *field_text(set **son, uint32_t mask, const char *field)
{
    return text_or_empty(tree_son_get_str(tree_get(son, mask, field), mask));
}

int compare_text(set **son, set **other, const char *field)
{
    const uint32_t mask = reading_mask();
    return str_casecmp(field_text(son, mask, field), field_text(other, mask, field));
}

int compare_number(set **son, set **other, const char *field)
{
    const uint32_t mask = reading_mask();
    const int number = parse_i32(field_text(son, mask, field));
    const int other_number = parse_i32(field_text(other, mask, field));
    return number < other_number ? -1 : number > other_number;
}

// One pass over the visible sons, which exchanges neighbours that are out of order. Whether it met any.
bool sort_pass(set *parent, uint32_t mask)
{
    bool met = false;
    set **first = first_visible(&parent->sons, mask);
    for (set **next = nullptr; first; first = next) {
        next = first_visible(&(*first)->next, mask);
        if (!next || strcmp((*first)->value, (*next)->value) <= 0)
            continue;
        met = true;
        set_swap(&parent, (*first)->value, (*next)->value);
    }
    return met;
}

// Deliberate: as many passes as there are sons but one, even where values that are no good as paths cannot be
// exchanged.
void sort_sons(set *parent, uint32_t mask)
{
    int passes = tree_get_nsons(&parent, mask) - 1;
    while (passes > 0 && sort_pass(parent, mask))
        passes--;
}

// Gives the slot a son of its number: the one of other layers that stands there, else a new one.
set **fill_slot(set *list, uint32_t mask, Slot slot)
{
    if (!slot.place || slot.number > INT32_MAX)
        return nullptr;
    set *standing = *slot.place;
    if (!standing || number_of(standing) != slot.number || in_mask(standing, mask))
        insert_node(slot.place, new_node(Decimal(static_cast<int>(slot.number)).c_str(), 0, list));
    mark_changed(*slot.place);
    add_layers_upward(*slot.place, mask);
    return slot.place;
}

} // namespace

set **kutil::tree_index_add_behind(set **last, uint32_t mask)
{
    set *son = *last;
    return fill_slot(son->parent, mask, {&son->next, int64_t{number_of(son)} + 1});
}

set **set_index_add_mask(set **h, uint32_t mask, int index)
{
    set *list = node_at(h);
    if (!list || !mask)
        return nullptr;
    if (has_several_bits(mask)) {
        zel_error_full(kEntity, kFatalEmerg, "Cannot add index to more than one layer simultaneously");
        return nullptr;
    }
    return fill_slot(list, mask, find_slot(list, mask, index));
}

set **set_index_add(set **h, int index) { return set_index_add_mask(h, writing_mask(), index); }

int set_index_reindex_mask(set **h, uint32_t mask)
{
    set *list = node_at(h);
    if (!list || !list->sons)
        return -1;
    if (has_several_bits(mask))
        return zel_error_full(kEntity, kFatalEmerg, "Cannot reindex more than one layer simultaneously");
    int number = -1;
    for (set **place = first_visible(&list->sons, mask); place; place = first_visible(place, mask)) {
        set *son = *place;
        number++;
        if (number_of(son) == number) {
            place = &son->next;
            continue;
        }
        const bool stays = (son->layers & ~mask) != 0;
        set **renamed = tree_rename_int(place, mask, number);
        // The next in the list: behind the renamed node when that stands here, else what followed the old
        // one.
        if (stays)
            place = &son->next;
        if (renamed == place)
            place = &(*renamed)->next;
    }
    return number;
}

int set_index_reindex(set **h) { return set_index_reindex_mask(h, writing_mask()); }

void set_index_swap_mask(set **h, uint32_t mask, int i, int j)
{
    set_swap_mask(h, mask, Decimal(i).c_str(), Decimal(j).c_str());
}

void set_index_swap(set **h, int i, int j) { set_index_swap_mask(h, writing_mask(), i, j); }

set **set_index_next(set **h, set **current)
{
    const uint32_t mask = reading_mask();
    const int above = node_at(current) ? number_of(*current) : -1;
    set **best = nullptr;
    for (set **son = tree_get_son(h, mask, 0); son; son = tree_get_next(son, mask)) {
        if (number_of(*son) > above && (!best || number_of(*son) < number_of(*best)))
            best = son;
    }
    return best;
}

set ***set_sort_by_field(set **h, const char *field, set_sort_func compare)
{
    const uint32_t mask = reading_mask();
    const auto count = static_cast<size_t>(tree_get_nsons(h, mask));
    if (count == 0)
        return nullptr;
    set ***sons = new_array<set **>(count);
    set ***end = sons;
    for (set **son = tree_get_son(h, mask, 0); son; son = tree_get_next(son, mask))
        *end++ = son;
    if (compare)
        sort_stably(sons, count, [&](set **a, set **b) { return compare(a, b, field) > 0; });
    return sons;
}

set ***set_sort(set **h, const char *field) { return set_sort_by_field(h, field, compare_text); }

set ***set_sort_num(set **h, const char *field) { return set_sort_by_field(h, field, compare_number); }

void set_sort_sons_by_value(set **h)
{
    struct Level {
        set *parent;
        set *next; // of its sons, the one whose sons are to be sorted
    };
    const uint32_t mask = reading_mask();
    set *top = visible_at(h, mask);
    if (!top)
        return;
    WalkStack<Level> levels;
    levels.push({top, top->sons});
    while (!levels.empty()) {
        Level &level = levels.top();
        set *son = level.next;
        if (!son) {
            sort_sons(levels.pop().parent, mask);
            continue;
        }
        level.next = son->next;
        if (in_mask(son, mask) && son->sons)
            levels.push({son, son->sons});
    }
}

int set_get_max_int(set **h, const char *field)
{
    const uint32_t mask = reading_mask();
    int greatest = -1;
    for (set **son = tree_get_son(h, mask, 0); son; son = tree_get_next(son, mask))
        greatest = std::max(greatest, static_cast<int>(parse_i32(field_text(son, mask, field))));
    return greatest;
}

set **set_lookfor_value(set **h, const char *field, const char *value, set **skip)
{
    const uint32_t mask = reading_mask();
    if (!value)
        return nullptr;
    for (set **son = tree_get_son(h, mask, 0); son; son = tree_get_next(son, mask)) {
        if (son != skip && same_text(field_text(son, mask, field ? field : ""), value))
            return son;
    }
    return nullptr;
}
