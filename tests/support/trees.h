#ifndef KUTIL_TESTS_SUPPORT_TREES_H
#define KUTIL_TESTS_SUPPORT_TREES_H

#include "util/internal/set_node.h"

#include <gtest/gtest.h>
#include <ostream>
#include <string>

// A tree written as "conf(a(1) b:3(c:2))": brothers are separated by blanks, ":" is followed by the layers in
// hexadecimal (1 when absent). The builder sets fields directly, so it can make what no call would; nothing
// is marked changed. The text is also what Tree::show gives, with "*" behind marked nodes where marks are
// wanted.
class Tree
{
public:
    explicit Tree(const char *text = "")
    {
        root = read_list(text, nullptr);
        EXPECT_EQ(*text, '\0');
    }
    ~Tree() { kutil::free_chain(root); }
    Tree(const Tree &) = delete;
    Tree &operator=(const Tree &) = delete;

    set **operator&() { return &root; }
    std::string show() const { return show_list(root, nullptr, false); }
    std::string marks() const { return show_list(root, nullptr, true); }
    // The place of a node that is reached by these names, in any layer; the tests' own way to a handle.
    set **at(const char *path) { return *path ? kutil::tree_get(&root, ~0U, path) : &root; }

    // A tree's text; a node whose parent field is wrong shows "!".
    static std::string show_list(const set *node, const set *parent, bool marks)
    {
        std::string text;
        for (const char *separator = ""; node; node = node->next, separator = " ") {
            char layers[16] = "";
            if (node->layers != 1)
                snprintf(layers, sizeof(layers), ":%x", static_cast<unsigned>(node->layers));
            text += std::string(separator) + node->value + layers;
            text += marks && node->changed ? "*" : "";
            text += node->parent != parent ? "!" : "";
            if (node->sons)
                text += "(" + show_list(node->sons, node, marks) + ")";
        }
        return text;
    }

    set *root = nullptr;

private:
    static set *read_list(const char *&at, set *parent)
    {
        set *first = nullptr;
        set **end = &first;
        while ((*at && *at != ')') || (parent && !first)) { // "()" has a son with an empty text
            const size_t length = strcspn(at, " ():");
            set *node = *end = kutil::new_node(kutil::View(at, length), 1, parent);
            end = &node->next;
            node->changed = 0;
            at += length;
            if (*at == ':') {
                char *number_end;
                node->layers = static_cast<uint32_t>(strtoul(at + 1, &number_end, 16));
                at = number_end;
            }
            if (*at == '(')
                node->sons = read_list(++at, node), at++;
            at += *at == ' ';
        }
        return first;
    }
};

// Other masks than the stack's while it lives.
class Masks
{
public:
    Masks(uint32_t to_read, uint32_t to_write) : entry_{kutil::mask_stack.top, to_read, to_write}
    {
        kutil::mask_stack.top = &entry_;
    }
    ~Masks() { kutil::mask_stack.top = entry_.prev; }
    Masks(const Masks &) = delete;
    Masks &operator=(const Masks &) = delete;

private:
    set_mask_entry entry_;
};

// A new text as a std::string; "(null)" for NULL.
inline std::string taken(char *text)
{
    const std::string result = text ? text : "(null)";
    free(text);
    return result;
}

#endif
