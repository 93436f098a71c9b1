// What the commands do with secrets, and the command that is about nothing else.

#include "commands.h"
#include "common/secrets.h"
#include "common/tree_line.h"
#include "secret_input.h"
#include "util/conf_key.h"
#include "util/set_value.h"
#include "util/zel_error.h"

namespace zconf
{

using kutil::common::ClearText;
using kutil::common::kDeviceKeyPath;
using kutil::common::Secret;
using kutil::common::secret_at;

namespace
{

const char *type_name(Secret kind) { return kind == Secret::bytes ? "bin-secret" : "secret"; }

// What the value at `path` is when it is read or written as `type`; a configuration key is one in any case.
Secret kind_of(Secret listed, const ValueType &type)
{
    if (type.is_bytes())
        return Secret::bytes;
    return listed == Secret::key ? Secret::key : Secret::text;
}

// The other secrets were obscured with the device's key and are lost with it.
Exit check_no_key_lost(Session &session, const char *path, Secret kind)
{
    const bool is_device_key = kind == Secret::key && set_get(session.tree(), path) &&
                               set_get(session.tree(), path) == set_get(session.tree(), kDeviceKeyPath);
    if (session.force() || !is_device_key || !*set_get_path_strz(session.tree(), path))
        return kDone;
    return session.complain(kNo,
                            "%s: secrets that were obscured with this key could not be read any more "
                            "(--force replaces it)",
                            shown(path).get());
}

} // namespace

Exit read_type(Session &session, const char *name, ValueType *type)
{
    if (type->read(name))
        return kDone;
    return session.complain(
        kMisuse,
        "--type: %s: not one of int, u32, u64, hex, float, flag, time, ip, mac, bin, enum:NAME "
        "(of a code table), secret, bin-secret",
        typed(name).get());
}

void load_keys(Session &session)
{
    if (zel_conf_crypt_key_load(session.tree()) != 0 && *set_get_path_strz(session.tree(), kDeviceKeyPath))
        session.complain(kDone, "%s: holds no usable key, so the built-in one is used", kDeviceKeyPath);
}

Exit set_secret(Session &session, const Args &args, const char *path, const ValueType &type)
{
    const Secret listed = secret_at(session.tree(), path);
    const Secret kind = kind_of(listed, type);
    if (listed != Secret::none && listed != kind && !session.force())
        return session.complain(kNo, "%s: is listed as a %s (--force passes over that)", shown(path).get(),
                                type_name(listed));
    if (const Exit lost = check_no_key_lost(session, path, kind); lost != kDone)
        return lost;
    const bool asked = View(args.word(1)) == "-";
    const HeapText name = shown(path);
    const ClearText clear(asked ? read_secret_input(session, name.get()) : kutil::copy_text(args.word(1)));
    if (!clear.get())
        return kMisuse;
    load_keys(session);
    // The value is a secret: a message does not repeat it.
    if (!secret_write(session.tree(), path, kind, clear.get()))
        return session.complain(kMisuse, "%s: the value is not %s", name.get(),
                                kind == Secret::key     ? "a key of 64 hexadecimal digits"
                                : kind == Secret::bytes ? "bytes of two hexadecimal digits each"
                                                        : "a text that can be obscured");
    if (listed == Secret::none)
        session.complain(kDone,
                         "%s: stored, but not listed under encryption/obscured_params: reobscure and other "
                         "programs do not take it as a secret",
                         name.get());
    return kDone;
}

Exit print_unmasked(Session &session, const char *path, const ValueType *type)
{
    const Secret listed = secret_at(session.tree(), path);
    if (listed == Secret::none && !type)
        return session.complain(kNo,
                                "%s: is not listed as a secret (--type secret or bin-secret reads it as one)",
                                shown(path).get());
    const Secret kind = type ? kind_of(listed, *type) : listed;
    load_keys(session);
    const ClearText clear(secret_read(session.tree(), path, kind));
    if (!clear.get())
        return session.complain(kNo, "%s: its value was not obscured as a %s with the current key",
                                shown(path).get(), type_name(kind));
    const ClearText line(shown(clear.get()).release());
    fprintf(session.out(), "%s\n", line.get());
    return kDone;
}

Exit check_not_in_clear(Session &session, const char *path, View value)
{
    const Secret kind = session.force() ? Secret::none : secret_at(session.tree(), path);
    if (kind == Secret::none || value.empty() || looks_obscured(value, kind))
        return kDone;
    return session.complain(kNo,
                            "%s: is a secret, and this value is not obscured: --type %s obscures it (--force "
                            "stores it as it is)",
                            shown(path).get(), type_name(kind));
}

namespace
{

struct Reobscured {
    Session *session;
    size_t listed;
    size_t empty;
    size_t left;
};

int note_left(void *context, const char *report, uint32_t)
{
    auto *counts = static_cast<Reobscured *>(context);
    counts->left++;
    counts->session->complain(kNo, "%s", shown(report).get());
    return 0;
}

// Counts what reobscure goes over. A key must not be among it: it would be obscured with itself.
Exit count_listed(Session &session, const char *prefix, Reobscured *counts)
{
    set **params = set_get(session.tree(), "encryption/obscured_params");
    for (set **param = set_get_son(params, 0); param; param = set_get_next(param)) {
        const char *name = set_get_path_str(param, "name");
        if (!name || !kutil::starts_with(name, prefix))
            continue;
        if (secret_at(session.tree(), name) == Secret::key)
            return session.complain(kNo,
                                    "%s: is listed as a secret, but stays obscured with the built-in key",
                                    shown(name).get());
        counts->listed++;
        counts->empty += *set_get_path_strz(session.tree(), name) == '\0';
    }
    return kDone;
}

} // namespace

Exit run_reobscure(Session &session, const Args &args)
{
    const HeapText prefix = read_path(session, args, 0);
    if (!prefix)
        return kMisuse;
    Reobscured counts = {&session, 0, 0, 0};
    if (const Exit counted = count_listed(session, prefix.get(), &counts); counted != kDone)
        return counted;
    if (zel_conf_crypt_key_load(session.tree()) != 0)
        return session.complain(kNo, "%s: holds no usable key to obscure with", kDeviceKeyPath);
    constexpr uint32_t kWarnings = 5;
    zel_error_register_level(0, kWarnings, note_left, &counts);
    reobscure_zel_conf_params(session.tree(), prefix.get());
    zel_error_unregister_level(note_left, &counts);
    const size_t done = counts.listed - counts.empty - counts.left;
    if (counts.left > 0 && !session.force())
        return session.complain(
            kNo, "%zu of %zu secrets cannot be obscured anew, so nothing was (--force does the rest)",
            counts.left, counts.left + done);
    fprintf(session.out(), "%zu obscured anew, %zu left as they are, %zu without a value\n", done,
            counts.left, counts.empty);
    return kDone;
}

} // namespace zconf
