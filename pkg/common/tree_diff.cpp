#include "tree_diff.h"
#include "tree_line.h"

#include "util/internal/walk_stack.h"

#include <algorithm>
#include <numeric>

namespace kutil::common
{

namespace
{

constexpr uint32_t kNone = UINT32_MAX;

// A node of one of the trees. `shape` numbers what stands here and below, whatever the order of brothers:
// nodes of both trees have the same number exactly when they are equal in that sense.
struct Node {
    set *node;
    uint32_t sons; // the first of them; they stand behind one another
    uint32_t count;
    uint32_t height;
    uint32_t shape;
    uint32_t partner; // the node of the other tree that it is compared with
    bool done;        // its sons are in the table, or need not be
};

// Both trees in one table, parents before their sons, with their shapes. Neither needs a walk with a stack.
class Forest
{
public:
    // Adds a top node and returns its number, kNone when the handle's node is not visible.
    uint32_t add_top(set **tree) { return set_get_value(tree) ? push(*tree) : kNone; }
    // Adds what stands below both tops, but leaves out what is the same in both according to the marks of the
    // second tree.
    void add_changed(uint32_t from, uint32_t to);
    // Adds all that is still missing.
    void add_rest();
    void find_shapes();
    // Pairs the sons of two nodes.
    void pair_sons(const Node &from, const Node &to);
    Node &operator[](uint32_t i) { return nodes_[i]; }

private:
    uint32_t push(set *node)
    {
        nodes_.push({node, 0, 0, 0, 0, kNone, false});
        return static_cast<uint32_t>(nodes_.size() - 1);
    }
    void add_sons(uint32_t i);
    void find_heights();
    void number_shapes(uint32_t *begin, uint32_t *end, uint32_t *next_shape);
    int compare(uint32_t a, uint32_t b);
    void sort_sons(const Node &parent, uint32_t *out);
    void pair_equals(uint32_t *a, uint32_t *a_end, uint32_t *b, uint32_t *b_end);
    void pair_rest(uint32_t *a, uint32_t *a_end, uint32_t *b, uint32_t *b_end);

    WalkStack<Node> nodes_;
    Heap<uint32_t> order_;      // work space for as many numbers as there are nodes
    Heap<uint32_t> son_shapes_; // beside each node's sons their shapes, sorted
};

void Forest::add_sons(uint32_t i)
{
    set *parent = nodes_[i].node;
    const size_t first = nodes_.size();
    for (set **son = set_get_son(&parent, 0); son; son = set_get_next(son))
        push(*son);
    nodes_[i].sons = static_cast<uint32_t>(first);
    nodes_[i].count = static_cast<uint32_t>(nodes_.size() - first);
    nodes_[i].done = true;
}

void Forest::add_rest()
{
    for (uint32_t i = 0; i < nodes_.size(); i++) {
        if (!nodes_[i].done)
            add_sons(i);
    }
}

// Among brothers of one name it cannot be said which of the first tree an unmarked one of the second is:
// those are all looked at.
void Forest::add_changed(uint32_t from, uint32_t to)
{
    struct Pair {
        uint32_t from;
        uint32_t to;
    };
    WalkStack<Pair> pairs;
    pairs.push({from, to});
    while (!pairs.empty()) {
        const Pair pair = pairs.top();
        pairs.pop();
        add_sons(pair.from);
        add_sons(pair.to);
        const Node &parent = nodes_[pair.from];
        const Node &other = nodes_[pair.to];
        const Heap<uint32_t> sons(new_array<uint32_t>(size_t{parent.count} + other.count + 1));
        uint32_t *const end = sons.get() + parent.count + other.count;
        std::iota(sons.get(), sons.get() + parent.count, parent.sons);
        std::iota(sons.get() + parent.count, end, other.sons);
        const auto name = [this](uint32_t i) { return nodes_[i].node->value; };
        const uint32_t second = other.sons; // the sons of the second parent have the higher numbers
        std::sort(sons.get(), end, [&](uint32_t a, uint32_t b) {
            const int order = strcmp(name(a), name(b));
            return order != 0 ? order < 0 : a < b;
        });
        for (uint32_t *i = sons.get(); i < end;) {
            uint32_t *const first = i;
            while (i < end && strcmp(name(*i), name(*first)) == 0)
                i++;
            if (i - first != 2 || first[0] >= second || first[1] < second)
                continue;
            if (nodes_[first[1]].node->changed)
                pairs.push({first[0], first[1]});
            else
                nodes_[first[0]].done = nodes_[first[1]].done = true;
        }
    }
}

void Forest::find_heights()
{
    for (size_t i = nodes_.size(); i-- > 0;) {
        Node &node = nodes_[i];
        for (uint32_t son = node.sons; son < node.sons + node.count; son++)
            node.height = std::max(node.height, nodes_[son].height + 1);
    }
}

// Orders nodes of the same height, whose sons have their shapes.
int Forest::compare(uint32_t a, uint32_t b)
{
    const Node &first = nodes_[a];
    const Node &second = nodes_[b];
    if (const int order = strcmp(first.node->value, second.node->value))
        return order;
    if (first.count != second.count)
        return first.count < second.count ? -1 : 1;
    const uint32_t *shapes = son_shapes_.get();
    for (uint32_t i = 0; i < first.count; i++) {
        const uint32_t left = shapes[first.sons + i];
        const uint32_t right = shapes[second.sons + i];
        if (left != right)
            return left < right ? -1 : 1;
    }
    return 0;
}

void Forest::number_shapes(uint32_t *begin, uint32_t *end, uint32_t *next_shape)
{
    for (const uint32_t *i = begin; i < end; i++) {
        const Node &node = nodes_[*i];
        uint32_t *shapes = son_shapes_.get() + node.sons;
        for (uint32_t son = 0; son < node.count; son++)
            shapes[son] = nodes_[node.sons + son].shape;
        std::sort(shapes, shapes + node.count);
    }
    std::sort(begin, end, [this](uint32_t a, uint32_t b) { return compare(a, b) < 0; });
    for (const uint32_t *i = begin; i < end; i++) {
        if (i == begin || compare(i[-1], *i) != 0)
            ++*next_shape;
        nodes_[*i].shape = *next_shape;
    }
}

void Forest::find_shapes()
{
    const size_t count = nodes_.size();
    order_.reset(new_array<uint32_t>(count + 1));
    son_shapes_.reset(new_array<uint32_t>(count + 1));
    find_heights();
    uint32_t *const begin = order_.get();
    uint32_t *const end = begin + count;
    std::iota(begin, end, 0U);
    std::sort(begin, end, [this](uint32_t a, uint32_t b) { return nodes_[a].height < nodes_[b].height; });
    uint32_t next_shape = 0;
    for (uint32_t *level = begin; level < end;) {
        const uint32_t height = nodes_[*level].height;
        uint32_t *level_end =
            std::find_if(level, end, [&](uint32_t i) { return nodes_[i].height != height; });
        number_shapes(level, level_end, &next_shape);
        level = level_end;
    }
}

void Forest::sort_sons(const Node &parent, uint32_t *out)
{
    std::iota(out, out + parent.count, parent.sons);
    std::sort(out, out + parent.count, [this](uint32_t a, uint32_t b) {
        const int order = strcmp(nodes_[a].node->value, nodes_[b].node->value);
        if (order != 0)
            return order < 0;
        return nodes_[a].shape != nodes_[b].shape ? nodes_[a].shape < nodes_[b].shape : a < b;
    });
}

// Of brothers of one name, sorted by shape.
void Forest::pair_equals(uint32_t *a, uint32_t *a_end, uint32_t *b, uint32_t *b_end)
{
    while (a < a_end && b < b_end) {
        Node &left = nodes_[*a];
        Node &right = nodes_[*b];
        if (left.shape == right.shape) {
            left.partner = *b;
            right.partner = *a;
        }
        const bool skip_left = left.shape <= right.shape;
        b += right.shape <= left.shape;
        a += skip_left;
    }
}

// What is left of brothers of one name, in the order of the lists.
void Forest::pair_rest(uint32_t *a, uint32_t *a_end, uint32_t *b, uint32_t *b_end)
{
    const auto is_paired = [this](uint32_t i) { return nodes_[i].partner != kNone; };
    a_end = std::remove_if(a, a_end, is_paired);
    b_end = std::remove_if(b, b_end, is_paired);
    std::sort(a, a_end);
    std::sort(b, b_end);
    for (; a < a_end && b < b_end; a++, b++) {
        nodes_[*a].partner = *b;
        nodes_[*b].partner = *a;
    }
}

void Forest::pair_sons(const Node &from, const Node &to)
{
    uint32_t *left = order_.get();
    uint32_t *right = left + from.count;
    uint32_t *const left_end = right;
    uint32_t *const right_end = right + to.count;
    sort_sons(from, left);
    sort_sons(to, right);
    const auto name = [this](uint32_t i) { return nodes_[i].node->value; };
    const auto end_of_name = [&](uint32_t *i, uint32_t *end) {
        const char *first = name(*i);
        return std::find_if(i, end, [&](uint32_t other) { return strcmp(name(other), first) != 0; });
    };
    while (left < left_end && right < right_end) {
        const int order = strcmp(name(*left), name(*right));
        uint32_t *const left_next = order <= 0 ? end_of_name(left, left_end) : left;
        uint32_t *const right_next = order >= 0 ? end_of_name(right, right_end) : right;
        if (order == 0) {
            pair_equals(left, left_next, right, right_next);
            pair_rest(left, left_next, right, right_next);
        }
        left = left_next;
        right = right_next;
    }
}

// The walk over both trees that writes the lines.
class Differ
{
public:
    Differ(LineSink sink, void *context) : writer_(sink, context) {}
    size_t run(set **from, set **to, Marks marks);

private:
    // Two nodes whose sons are being compared, each with the next son to look at.
    struct Level {
        uint32_t from;
        uint32_t to;
        uint32_t from_son;
        uint32_t to_son;
        size_t path_end;
    };

    void list(View mark, uint32_t top);
    void compare(uint32_t from, uint32_t to);
    void step();

    Forest forest_;
    TreeLineWriter writer_;
    WalkStack<Level> levels_;
};

constexpr View kAdded = "+ ";
constexpr View kRemoved = "- ";
constexpr View kChanged = "~ ";

void Differ::list(View mark, uint32_t top)
{
    writer_.set_mark(mark);
    writer_.list(forest_[top].node);
}

// The path is that of the two nodes, and stays.
void Differ::compare(uint32_t from, uint32_t to)
{
    const Node &old_node = forest_[from];
    const Node &new_node = forest_[to];
    if (old_node.shape == new_node.shape)
        return;
    // The top has no path, so it is no line either.
    const bool is_top = writer_.path_is_empty();
    const bool was_line = !is_top && (old_node.count == 0 || value_leaf(old_node.node));
    const bool is_line = !is_top && (new_node.count == 0 || value_leaf(new_node.node));
    if (was_line && is_line) {
        list(kChanged, to);
    } else if (was_line || is_line) {
        list(kRemoved, from);
        list(kAdded, to);
    } else {
        forest_.pair_sons(old_node, new_node);
        levels_.push({from, to, old_node.sons, new_node.sons, writer_.length()});
    }
}

// The next son of the level on top: those of the first tree, then what only the second has.
void Differ::step()
{
    Level &level = levels_.top();
    const Node &old_parent = forest_[level.from];
    const Node &new_parent = forest_[level.to];
    writer_.shorten(level.path_end);
    if (level.from_son < old_parent.sons + old_parent.count) {
        const uint32_t son = level.from_son++;
        writer_.add_name(forest_[son].node->value);
        if (forest_[son].partner == kNone)
            list(kRemoved, son);
        else
            compare(son, forest_[son].partner);
    } else if (level.to_son < new_parent.sons + new_parent.count) {
        const uint32_t son = level.to_son++;
        if (forest_[son].partner != kNone)
            return;
        writer_.add_name(forest_[son].node->value);
        list(kAdded, son);
    } else {
        levels_.pop();
    }
}

size_t Differ::run(set **from, set **to, Marks marks)
{
    const uint32_t old_top = forest_.add_top(from);
    const uint32_t new_top = forest_.add_top(to);
    writer_.start(kChanged);
    if (old_top == kNone || new_top == kNone) {
        if (old_top != kNone)
            list(kRemoved, old_top);
        if (new_top != kNone)
            list(kAdded, new_top);
        return writer_.lines();
    }
    if (marks == Marks::trusted)
        forest_.add_changed(old_top, new_top);
    forest_.add_rest();
    forest_.find_shapes();
    compare(old_top, new_top);
    while (!levels_.empty())
        step();
    return writer_.lines();
}

} // namespace

size_t tree_diff(set **from, set **to, LineSink sink, void *context, Marks marks)
{
    Differ differ(sink, context);
    return differ.run(from, to, marks);
}

} // namespace kutil::common
