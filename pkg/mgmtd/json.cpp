#include "json.h"

#include "common/tree_line.h"
#include "util/internal/walk_stack.h"

#include <algorithm>

namespace mgmtd
{

using kutil::sub;

namespace
{

// Brothers of one list, to be written as the members of an object or the elements of an array.
struct Item {
    set *node;
    uint32_t next; // the next brother of the same name, kLast without one
    bool first;    // of its name
};
constexpr uint32_t kLast = UINT32_MAX;

struct Level {
    Item *items; // owned by the level of the object
    uint32_t count;
    uint32_t at; // what is written next; in an array kLast at the end
    bool array;
    bool written; // something, so that a comma is due
};

// Links the items of one name, in their order.
void link_names(Item *items, uint32_t count)
{
    const kutil::Heap<uint32_t> order(kutil::new_array<uint32_t>(count));
    for (uint32_t i = 0; i < count; i++)
        order.get()[i] = i;
    std::sort(order.get(), order.get() + count, [&](uint32_t a, uint32_t b) {
        const int cmp = strcmp(items[a].node->value, items[b].node->value);
        return cmp != 0 ? cmp < 0 : a < b;
    });
    for (uint32_t i = 1; i < count; i++) {
        Item &previous = items[order.get()[i - 1]];
        Item &item = items[order.get()[i]];
        if (strcmp(previous.node->value, item.node->value) != 0)
            continue;
        previous.next = order.get()[i];
        item.first = false;
    }
}

Level open_object(set *node)
{
    const auto count = static_cast<uint32_t>(std::max(set_get_nsons(&node), 0));
    Item *items = kutil::new_array<Item>(count + 1);
    uint32_t i = 0;
    for (set **son = set_get_son(&node, 0); son && i < count; son = set_get_next(son))
        items[i++] = {*son, kLast, true};
    link_names(items, i);
    return {items, i, 0, false, false};
}

class Writer
{
public:
    explicit Writer(TextBuilder *out) : out_(out) {}
    void write(set *node)
    {
        value(node);
        while (!levels_.empty())
            step();
    }

private:
    // A string at once; an object is begun, and its level goes on with it.
    void value(set *node)
    {
        const set *leaf = kutil::common::value_leaf(node);
        if (leaf) {
            append_json_string(out_, leaf->value);
            return;
        }
        out_->append('{');
        levels_.push(open_object(node));
    }

    void close()
    {
        const Level level = levels_.top();
        out_->append(level.array ? ']' : '}');
        if (!level.array)
            free(level.items);
        levels_.pop();
    }

    void step()
    {
        Level &level = levels_.top();
        while (!level.array && level.at < level.count && !level.items[level.at].first)
            level.at++;
        if (level.at >= level.count) {
            close();
            return;
        }
        if (level.written)
            out_->append(',');
        level.written = true;
        const Item item = level.items[level.at];
        if (level.array) {
            level.at = item.next;
            value(item.node);
            return;
        }
        append_json_string(out_, item.node->value);
        out_->append(':');
        const uint32_t index = level.at++;
        if (item.next == kLast) {
            value(item.node);
            return;
        }
        out_->append('[');
        levels_.push({level.items, level.count, index, true, false});
    }

    TextBuilder *out_;
    kutil::WalkStack<Level> levels_;
};

} // namespace

size_t utf8_length(View text)
{
    if (text.empty())
        return 0;
    const auto byte = [&](size_t i) { return static_cast<unsigned char>(text[i]); };
    const unsigned lead = byte(0);
    if (lead < 0x80)
        return 1;
    const size_t length = lead >= 0xF0 ? 4 : lead >= 0xE0 ? 3 : 2;
    if (lead < 0xC2 || lead > 0xF4 || text.size() < length)
        return 0;
    for (size_t i = 1; i < length; i++) {
        if ((byte(i) & 0xC0) != 0x80)
            return 0;
    }
    // No longer than needed, no surrogate, nothing above U+10FFFF.
    const unsigned second = byte(1);
    const bool bad = (lead == 0xE0 && second < 0xA0) || (lead == 0xED && second > 0x9F) ||
                     (lead == 0xF0 && second < 0x90) || (lead == 0xF4 && second > 0x8F);
    return bad ? 0 : length;
}

void append_json_string(TextBuilder *out, View text)
{
    constexpr char kDigits[] = "0123456789abcdef";
    out->append('"');
    while (!text.empty()) {
        const size_t length = utf8_length(text);
        const char c = text.front();
        if (length == 0) {
            out->append("\xEF\xBF\xBD");
        } else if (length > 1) {
            out->append(sub(text, 0, length));
        } else if (c == '"' || c == '\\') {
            out->append('\\');
            out->append(c);
        } else if (static_cast<unsigned char>(c) < 32 || c == 127 || c == '<') {
            out->append("\\u00");
            out->append(kDigits[static_cast<unsigned char>(c) >> 4]);
            out->append(kDigits[static_cast<unsigned char>(c) & 15]);
        } else {
            out->append(c);
        }
        text = sub(text, std::max<size_t>(length, 1));
    }
    out->append('"');
}

void write_json(set *node, TextBuilder *out) { Writer(out).write(node); }

} // namespace mgmtd
