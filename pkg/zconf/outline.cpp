#include "outline.h"

#include "commands.h"
#include "common/tree_line.h"
#include "util/internal/walk_stack.h"

namespace zconf
{

namespace
{

class Outline
{
public:
    Outline(FILE *out, long depth) : out_(out), depth_(depth) {}

    void run(set **node)
    {
        draw(*node);
        while (!levels_.empty()) {
            set **&next = levels_.top();
            if (!next) {
                levels_.pop();
                continue;
            }
            set *son = *next;
            next = set_get_next(next);
            draw(son);
        }
    }

private:
    // The node's line; its sons, when they are to be drawn, become the level on top.
    void draw(set *node)
    {
        line_.clear();
        line_.append(' ', 2 * levels_.size());
        kutil::common::append_printable(&line_, node->value);
        set **sons = set_get_son(&node, 0);
        if (const set *leaf = kutil::common::value_leaf(node)) {
            line_.append(" = ");
            kutil::common::append_printable(&line_, leaf->value);
        } else if (sons && depth_ >= 0 && levels_.size() >= static_cast<size_t>(depth_)) {
            line_.append(" (");
            line_.append(KeyCount(&node).text);
            line_.append(')');
        } else if (sons) {
            levels_.push(sons);
        }
        line_.append('\n');
        fwrite(line_.text().data(), 1, line_.size(), out_);
    }

    FILE *out_;
    long depth_;
    kutil::TextBuilder line_;
    kutil::WalkStack<set **> levels_; // of each level that is open, the next node
};

} // namespace

void print_outline(FILE *out, set **node, long depth) { Outline(out, depth).run(node); }

} // namespace zconf
