// Whole trees: merge, replace, join, compare, swap.

#include "set_mask.h"

#include "internal/heap.h"
#include "internal/set_node.h"
#include "internal/son_finder.h"
#include "internal/value_like.h"

#include <utility>

using namespace kutil;

namespace
{

constexpr uint32_t kAllLayers = UINT32_MAX;

bool are_related(set *a, set *b) { return tree_contains(a, b) || tree_contains(b, a); }

// The tree that an operation reads: the node itself, or a copy of it with all layers when one of the two
// trees stands in the other, or the target's empty place does, so that the operation may change and free what
// it reads.
class Source
{
public:
    Source(set *node, set **target)
    {
        const bool related = node && (*target ? are_related(node, *target) : tree_has_place(node, target));
        copy_ = related ? tree_dup(&node, kAllLayers) : nullptr;
        node_ = related ? copy_ : node;
    }
    Source(const Source &) = delete;
    Source &operator=(const Source &) = delete;
    ~Source() { free_chain(copy_); }
    set *get() const { return node_; }

private:
    set *node_;
    set *copy_;
};

// --- Merge.

// Of two nodes that are being merged, the source's next son.
struct MergeLevel {
    set *next;
    SonFinder sons; // of the target
};

class Merger
{
public:
    Merger(uint32_t target_layers, uint32_t source_mask) : to_(target_layers), mask_(source_mask) {}

    int run(set *source, set *target)
    {
        if (in_conflict(source, target))
            return -1;
        add_layers_upward(target, to_);
        merge(source, target);
        while (!levels_.empty())
            step();
        return result_;
    }

private:
    static bool in_conflict(const set *source, const set *target)
    {
        return source->sons && target->sons && is_value_like(source) != is_value_like(target);
    }

    // Two nodes without a conflict.
    void merge(set *source, set *target)
    {
        if (!is_value_like(source)) {
            MergeLevel level = {source->sons, {}};
            level.sons.open(target, 0, count_brothers(source->sons));
            levels_.push(level);
        } else if (const set *value = value_son(source, mask_)) {
            tree_free_sons(&target, to_);
            find_or_add_son(target, value->value, to_);
        }
    }

    void step()
    {
        MergeLevel &level = levels_.top();
        set *source = level.next;
        if (!source) {
            levels_.pop().sons.close();
            return;
        }
        level.next = source->next;
        if (!in_mask(source, mask_))
            return;
        set *target = level.sons.find(source->value);
        if (target && in_conflict(source, target)) {
            result_ = -1;
            return;
        }
        if (!target)
            target = level.sons.add(source->value);
        give_layers(target, to_);
        merge(source, target);
    }

    uint32_t to_;
    uint32_t mask_;
    int result_ = 0;
    WalkStack<MergeLevel> levels_;
};

// --- Compare.

struct ComparedPair {
    const set *a;
    set *b;
};

// Pairs the visible sons of two nodes of one name by their names; false when they cannot be equal. Pairs of
// leaves are equal already.
bool pair_sons(const ComparedPair &parents, uint32_t a_mask, uint32_t b_mask, WalkStack<ComparedPair> *later)
{
    const auto count_sons = [](const set *parent, uint32_t mask) {
        size_t count = 0;
        for (const set *son = parent->sons; son; son = son->next)
            count += in_mask(son, mask);
        return count;
    };
    const size_t count = count_sons(parents.a, a_mask);
    if (count != count_sons(parents.b, b_mask))
        return false;
    SonFinder others;
    others.open(parents.b, b_mask, count);
    bool paired = true;
    for (const set *son = parents.a->sons; son && paired; son = son->next) {
        if (!in_mask(son, a_mask))
            continue;
        set *other = others.find(son->value);
        paired = other != nullptr;
        if (paired && (son->sons || other->sons))
            later->push({son, other});
    }
    others.close();
    return paired;
}

// --- Swap.

// Two different nodes of which none stands in the other.
struct SwapPair {
    set *a = nullptr;
    set *b = nullptr;
};

SwapPair find_swap_pair(set **h, uint32_t mask, const char *path1, const char *path2)
{
    set *a = node_at(tree_get(h, mask, path1));
    set *b = node_at(tree_get(h, mask, path2));
    return a && b && !are_related(a, b) ? SwapPair{a, b} : SwapPair{};
}

void swap_contents(const SwapPair &pair, uint32_t mask)
{
    set *a = pair.a;
    set *b = pair.b;
    set *kept = new_node("tmp", mask, nullptr);
    tree_join(kept, a, mask);
    tree_free_sons(&a, mask);
    tree_join(a, b, mask);
    tree_free_sons(&b, mask);
    tree_join(b, kept, mask);
    free_chain(kept);
}

// A node may have got sons or layers that it or its ancestors are not in: without this they could not be
// reached.
void repair_layers(set *node)
{
    for (const set *son = node->sons; son; son = son->next)
        node->layers |= son->layers;
    add_layers_upward(node->parent, node->layers);
}

} // namespace

int set_merge_sets_mask(set **dst, uint32_t dst_layers, set **src, uint32_t src_mask)
{
    set *target = node_at(dst);
    set *source = visible_at(src, src_mask);
    if (!target || !source || !dst_layers)
        return 0;
    const Source from(source, dst);
    return Merger(dst_layers, src_mask).run(from.get(), target);
}

int set_merge(set **dst, set **src) { return set_merge_sets_mask(dst, writing_mask(), src, reading_mask()); }

set **set_replace_sets_mask(set **dst, uint32_t dst_mask, set **src, uint32_t src_mask)
{
    if (!dst || !src)
        return nullptr;
    set *parent = *dst ? (*dst)->parent : nullptr;
    const Source from(visible_at(src, src_mask), dst);
    set *source = from.get();
    const bool released = tree_free(dst, dst_mask) != 0;
    if (!source)
        return dst;
    set *node = *dst; // what is left of the old node, or its brother
    const bool same_name = node && same_text(node->value, source->value);
    if (node && !same_name && !node->parent) {
        report_second_root();
        return nullptr;
    }
    if (released || !same_name) {
        node = new_node(source->value, 0, parent);
        insert_node(dst, node);
    }
    // Deliberate: the layers are those of the source, whatever dst_mask is. Callers bring a tree of another
    // layer in with one call.
    const uint32_t layers = source->layers & src_mask;
    if (!(node->layers & layers))
        mark_changed(node);
    add_layers_upward(node, layers);
    tree_join(node, source, src_mask);
    return dst;
}

set **set_replace(set **dst, set **src)
{
    return set_replace_sets_mask(dst, writing_mask(), src, reading_mask());
}

set **set_join_ordered(set **dst, set **src, set_order_func order)
{
    set *parent = node_at(dst);
    set *source = node_at(src);
    if (!parent || !source || !source->layers || are_related(parent, source))
        return nullptr;
    const uint32_t layers = source->layers;
    add_layers_upward(parent, layers);
    set **place = find_son(parent, source->value);
    if (!*place) {
        place = &parent->sons;
        while (*place && !(order && order((*place)->value, source->value) > 0))
            place = &(*place)->next;
        insert_node(place, new_node(source->value, layers, parent));
        mark_changed(*place);
    }
    set_replace_sets_mask(place, layers, src, layers);
    set_use(src, *place);
    return place;
}

set **set_join(set **dst, set **src) { return set_join_ordered(dst, src, nullptr); }

int set_compare_sets_mask(set **a, uint32_t a_mask, set **b, uint32_t b_mask)
{
    const set *first = visible_at(a, a_mask);
    set *second = visible_at(b, b_mask);
    if (!first || !second)
        return first || second ? -1 : 0;
    if (!same_text(first->value, second->value))
        return -1;
    WalkStack<ComparedPair> later;
    later.push({first, second});
    while (!later.empty()) {
        const ComparedPair pair = later.pop();
        if (!pair_sons(pair, a_mask, b_mask, &later))
            return -1;
    }
    return 0;
}

int set_compare(set **a, set **b) { return set_compare_sets_mask(a, reading_mask(), b, reading_mask()); }

int set_compare_path(set **a, set **b, const char *path)
{
    const uint32_t mask = reading_mask();
    return set_compare_sets_mask(tree_get(a, mask, path), mask, tree_get(b, mask, path), mask);
}

void set_swap(set **h, const char *path1, const char *path2)
{
    const SwapPair pair = find_swap_pair(h, kAllLayers, path1, path2);
    if (!pair.a)
        return;
    // The contents may bring layers along, so the words are exchanged as they were before.
    const uint32_t layers = pair.a->layers;
    const uint32_t other_layers = pair.b->layers;
    swap_contents(pair, kAllLayers);
    std::swap(pair.a->value, pair.b->value);
    pair.a->layers = other_layers;
    pair.b->layers = layers;
    repair_layers(pair.a);
    repair_layers(pair.b);
    mark_changed(pair.a);
    mark_changed(pair.b);
}

void set_swap_mask(set **h, uint32_t mask, const char *path1, const char *path2)
{
    const SwapPair pair = find_swap_pair(h, mask, path1, path2);
    if (!pair.a)
        return;
    swap_contents(pair, mask);
    repair_layers(pair.a);
    repair_layers(pair.b);
}

set *set_switch_sets(set **a, set **b)
{
    if (!a || !b)
        return nullptr;
    if (a == b || (*a && tree_has_place(*a, b)) || (*b && tree_has_place(*b, a)))
        return *a;
    set *first = *a ? unlink_node(a) : nullptr;
    set *second = *b ? unlink_node(b) : nullptr;
    set *parent = first ? first->parent : nullptr;
    if (first) {
        first->parent = second ? second->parent : nullptr;
        insert_node(b, first);
    }
    if (second) {
        second->parent = parent;
        insert_node(a, second);
    }
    return *a;
}
