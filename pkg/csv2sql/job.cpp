#include "job.h"

#include <cstdio>

namespace csv2sql
{

using kutil::csv_compare;
using kutil::csv_value;
using kutil::CsvValue;

Job::Job(const Settings &settings)
    : settings_(settings), in_(settings.in, settings.from),
      other_(settings.merge ? settings.merge : "-", settings.from), sql_(settings_, shape_, in_.name())
{
}

Exit Job::run()
{
    Exit result = open();
    if (result == kDone && !needs_table() && settings_.extra == Extra::widen)
        result = find_width();
    if (result == kDone && needs_table())
        result = load();
    if (result == kDone && settings_.to == Form::sql)
        result = measure();
    if (result == kDone)
        result = settings_.check ? report() : write();
    progress_.finish();
    in_.notices().finish();
    other_.notices().finish();
    if (settings_.stats)
        progress_.print_stats();
    return result == kDone && refused_ ? kRefused : result;
}

Exit Job::open()
{
    const Exit opened = in_.open();
    if (opened != kDone)
        return opened;
    if (!needs_table() && (settings_.to == Form::sql || settings_.extra == Extra::widen))
        return in_.make_rereadable();
    return settings_.merge ? other_.open() : kDone;
}

// ---- Lines ----

Exit Job::find_width()
{
    return in_.read([this](const csv_line *line) -> Exit {
        const auto cells = static_cast<size_t>(kutil::csv_count_cells(line->cells));
        width_ = cells > width_ ? cells : width_;
        return kDone;
    });
}

// Makes a row of `width` cells.
Exit Job::take_row(Input &input, csv_line *line, size_t width, Row *row)
{
    row->line = line->line_number;
    row->cells.clear();
    for (const csv_cell *cell = line->cells; cell; cell = cell->next)
        row->cells.add(View(cell->text));
    if (row->cells.size() < width && settings_.check)
        input.notices().add(Notices::short_line, row->line);
    if (row->cells.size() > width) {
        input.notices().add(Notices::long_line, row->line);
        if (settings_.extra != Extra::drop) {
            refused_ = true;
            if (!settings_.check)
                return kRefused;
        }
    }
    row->cells.resize(width, View("", 0));
    return kDone;
}

template <class Use>
Exit Job::use_row(const Use &use)
{
    if (!is_selected(row_))
        return kDone;
    progress_.line_written();
    if (columns_.empty())
        return use(row_);
    cut_.line = row_.line;
    cut_.cells.clear();
    for (const uint32_t position : columns_)
        cut_.cells.add(row_.cells[position]);
    return use(cut_);
}

template <class Use>
Exit Job::stream_row(csv_line *line, const Use &use)
{
    progress_.line_read();
    const Exit result = take_row(in_, line, fields_.count(), &row_);
    return result == kDone ? use_row(use) : result;
}

// Calls `begin` when the fields are known, then `use` for every row that is selected, from the table or the
// file.
template <class Begin, class Use>
Exit Job::each_row(const Begin &begin, const Use &use)
{
    progress_.restart_writing();
    bool begun = false;
    const auto start = [&]() -> Exit {
        if (std::exchange(begun, true))
            return kDone;
        const Exit result = prepare();
        return result == kDone ? begin() : result;
    };
    if (needs_table()) {
        Exit result = start();
        for (size_t i = 0; result == kDone && i < order_.size(); i++) {
            get_table_row(order_[i]);
            result = use_row(use);
        }
        return result;
    }
    progress_.restart_reading();
    const Exit result = in_.read([&](csv_line *line) -> Exit {
        const Exit started = start();
        return started == kDone ? stream_row(line, use) : started;
    });
    return result == kDone ? start() : result;
}

// ---- Fields ----

void Job::add_fields()
{
    for (const char *name : in_.header())
        fields_.add(name);
    while (fields_.count() < width_) {
        char name[32];
        int length = snprintf(name, sizeof(name), "field%zu", fields_.count() + 1);
        while (fields_.find(name) != Fields::kNone && length + 1 < static_cast<int>(sizeof(name)))
            name[length++] = '_', name[length] = '\0';
        fields_.add(name);
    }
}

Exit Job::find_field(const char *name, uint32_t *position) const
{
    *position = fields_.find(name);
    return *position == Fields::kNone ? complain(kMisuse, "%s: no field %s", in_.name(), name) : kDone;
}

Exit Job::set_types(bool all_known)
{
    for (const TypeOption &option : settings_.types) {
        uint32_t field = fields_.find(option.field);
        if (field == Fields::kNone && !all_known)
            continue;
        if (const Exit result = find_field(option.field, &field))
            return result;
        fields_[field].type = option.type;
    }
    return kDone;
}

// Looks the fields of the options up.
Exit Job::resolve()
{
    uint32_t field;
    for (const SelectOption &option : settings_.selects) {
        if (const Exit result = find_field(option.field, &field))
            return result;
        selects_.add({field, option.value, csv_value(fields_[field].type, option.value)});
    }
    for (const SortOption &option : settings_.sorts) {
        if (const Exit result = find_field(option.field, &field))
            return result;
        sort_keys_.add({field, option.descending});
    }
    for (const char *name : settings_.columns) {
        if (const Exit result = find_field(name, &field))
            return result;
        columns_.add(field);
        shape_.add(fields_[field]);
    }
    for (size_t i = 0; settings_.columns.empty() && i < fields_.count(); i++)
        shape_.add(fields_[i]);
    return kDone;
}

// Once, when the header has been read.
Exit Job::prepare()
{
    if (std::exchange(prepared_, true))
        return kDone;
    if (!needs_table())
        add_fields();
    const Exit result = set_types(true);
    return result == kDone ? resolve() : result;
}

bool Job::is_selected(const Row &row) const
{
    for (const Select &select : selects_) {
        const uint32_t type = fields_[select.field].type;
        if (csv_compare(type, csv_value(type, row.cells[select.field].data()), select.value) != 0)
            return false;
    }
    return true;
}

// ---- The table ----

void Job::get_table_row(size_t line)
{
    table_.get(line, fields_.count(), &row_);
    merge_.fill(line, &row_);
}

Exit Job::load()
{
    Exit result = in_.read([this](csv_line *line) -> Exit {
        progress_.line_read();
        const auto cells = static_cast<size_t>(kutil::csv_count_cells(line->cells));
        const size_t header = in_.header().size();
        const size_t width = settings_.extra == Extra::widen && cells > header ? cells : header;
        width_ = width > width_ ? width : width_;
        const Exit taken = take_row(in_, line, width, &row_);
        if (taken == kDone)
            table_.add(row_);
        return taken;
    });
    if (result != kDone)
        return result;
    add_fields();
    if (settings_.merge)
        result = merge();
    if (result == kDone)
        result = prepare();
    if (result == kDone)
        sort();
    return result;
}

Exit Job::load_other()
{
    const Exit result = other_.read([this](csv_line *line) -> Exit {
        const Exit taken = take_row(other_, line, other_.header().size(), &row_);
        if (taken == kDone)
            other_table_.add(row_);
        return taken;
    });
    for (const char *name : other_.header())
        other_fields_.add(name);
    return result;
}

Exit Job::merge()
{
    uint32_t key;
    Exit result = load_other();
    if (result == kDone)
        result = set_types(false);
    if (result == kDone)
        result = find_field(settings_.key, &key);
    if (result != kDone)
        return result;
    const uint32_t other_key = other_fields_.find(settings_.key);
    if (other_key == Fields::kNone)
        return complain(kMisuse, "%s: no field %s", other_.name(), settings_.key);
    const size_t unmatched = merge_.run(table_, &fields_, key, other_table_, other_fields_, other_key);
    fprintf(stderr, "csv2sql: %s: %zu of %zu lines matched nothing\n", other_.name(), unmatched,
            other_table_.count());
    return kDone;
}

// Lists the lines that are selected, in order.
void Job::sort()
{
    const size_t keys = sort_keys_.size();
    List<CsvValue> values; // of the keys, read once a line
    for (uint32_t line = 0; line < table_.count(); line++) {
        get_table_row(line);
        if (!is_selected(row_))
            continue;
        order_.add(line);
        for (const SortKey &key : sort_keys_)
            values.add(csv_value(fields_[key.field].type, row_.cells[key.field].data()));
    }
    if (keys == 0 || order_.size() < 2)
        return;
    List<uint32_t> lines;
    for (const uint32_t line : order_)
        lines.add(line);
    List<uint32_t> spare;
    spare.resize(lines.size(), 0);
    for (uint32_t i = 0; i < order_.size(); i++)
        order_[i] = i;
    kutil::merge_sort(order_.data(), spare.data(), order_.size(), [&](uint32_t a, uint32_t b) {
        for (size_t i = 0; i < keys; i++) {
            const SortKey &key = sort_keys_[i];
            const int result =
                csv_compare(fields_[key.field].type, values[a * keys + i], values[b * keys + i]);
            if (result != 0)
                return key.descending ? (result < 0) - (result > 0) : result;
        }
        return 0;
    });
    for (uint32_t i = 0; i < order_.size(); i++)
        order_[i] = lines[order_[i]];
}

// ---- Results ----

Exit Job::measure()
{
    return each_row([this] { return sql_.begin(); }, [this](const Row &row) { return sql_.measure(row); });
}

Exit Job::report()
{
    // The statements of a database have been measured already, which looks at everything.
    if (settings_.to != Form::sql) {
        const Exit result = each_row([] { return kDone; }, [](const Row &) { return kDone; });
        if (result != kDone)
            return result;
    }
    printf("%s: %zu fields, %zu lines\n", in_.name(), shape_.size(), progress_.read());
    return kDone;
}

Exit Job::write()
{
    Output output;
    Exit result = output.open(settings_.out);
    if (result != kDone)
        return result;
    if (settings_.to == Form::sql) {
        result =
            each_row([&] { return sql_.header(output); }, [this](const Row &row) { return sql_.row(row); });
        if (result == kDone)
            result = sql_.end();
    } else {
        TextWriter writer(output, settings_, shape_, in_.notices());
        result = each_row([&] { return writer.header(); }, [&](const Row &row) { return writer.row(row); });
    }
    return result == kDone ? output.close() : result;
}

} // namespace csv2sql
