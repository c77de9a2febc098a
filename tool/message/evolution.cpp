// SPDX-License-Identifier: Apache-2.0
#include "tool/message/evolution.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstddef>
#include <set>
#include <span>
#include <utility>

#include "tool/show/counted.h"

namespace tool {
namespace {

using Fields = std::span<const DescribedField>;

bool is_named_by_number(const DescribedField& field) {
    return field.name.starts_with('f') && field.name.find_first_not_of("0123456789", 1) == std::string::npos;
}

bool has_same_kind(const DescribedField& a, const DescribedField& b) {
    return a.form == b.form && a.element_bytes == b.element_bytes && a.table == b.table &&
           (a.form != VORN_KIND_FIXED_ARRAY || a.count == b.count);
}

// Names that are numbers say nothing: they follow from the slot.
bool has_same_name(const DescribedField& a, const DescribedField& b) {
    return a.name == b.name || (is_named_by_number(a) && is_named_by_number(b));
}

bool is_same(const DescribedField& a, const DescribedField& b) {
    return has_same_kind(a, b) && has_same_name(a, b);
}

bool has_same_fields(const DescribedType& a, const DescribedType& b) {
    return std::equal(a.fields.begin(), a.fields.end(), b.fields.begin(), b.fields.end(), is_same);
}

const char* value_if_absent(const DescribedField& field) {
    switch (field.form) {
        case VORN_KIND_SCALAR:
            return "0";
        case VORN_KIND_FIXED_ARRAY:
        case VORN_KIND_NESTED_TABLE:
            return "zeros";
        default:
            return "no elements";
    }
}

// The word for a change of kind, and what happens between a writer of the one and a reader of the other.
std::pair<const char*, std::string> other_kind(const DescribedField& before, const DescribedField& after) {
    const auto is_array = [](const DescribedField& field) {
        return field.form == VORN_KIND_FIXED_ARRAY || field.form == VORN_KIND_SCALAR_VECTOR;
    };
    if (before.form == VORN_KIND_SCALAR && after.form == VORN_KIND_SCALAR) {
        return {
            "other width",
            fmt::format("who reads more bytes takes what follows for a part of the number, who reads fewer "
                        "has its lowest {}",
                        counted(std::min(before.element_bytes, after.element_bytes), "byte"))};
    }
    if (is_array(before) && is_array(after)) {
        if (before.element_bytes != after.element_bytes) {
            return {"other width",
                    "elements are misread, or refused where they would end outside of the message"};
        }
        if (before.form == after.form) {
            return {"other length", "a reader refuses every number of elements but its own"};
        }
        const DescribedField& fixed = before.form == VORN_KIND_FIXED_ARRAY ? before : after;
        return {"other kind",
                fmt::format("who reads {} refuses every number of elements but {}", fixed.kind, fixed.count)};
    }
    if (before.form == VORN_KIND_SCALAR || after.form == VORN_KIND_SCALAR) {
        return {"other kind",
                "a number is taken for a distance, or a distance for a number: misread, or refused"};
    }
    return {"other kind",
            "a table is read where the count of a vector stands, or the reverse: misread, or refused"};
}

class Comparison {
  public:
    Comparison(const DescribedPackage& before, const DescribedPackage& after)
        : before_(before), after_(after) {
        for (const DescribedType& type : before.types()) {
            if (type.id) compare_message(type);
        }
        for (const DescribedType& type : after.types()) {
            const DescribedType* const found = before.find(type.name);
            if (!type.id || (found != nullptr && found->id) || is_renamed_.contains(type.name)) continue;
            add(kCompatible, type, "added", "a message of its own; old processes have no handler for its id");
        }
    }

    std::vector<Change> take() { return std::move(changes_); }

  private:
    void add(Verdict verdict, const DescribedType& type, const char* what, const std::string& reason,
             const std::string& before = "", const std::string& after = "") {
        changes_.push_back({verdict, type.name, "", what, before, after, reason});
    }
    void add_appended(const DescribedType& type, const DescribedField& field) {
        changes_.push_back({kCompatible, type.name, field.name, "appended", "", field.kind,
                            fmt::format("old readers skip it; of old messages new readers read {}",
                                        value_if_absent(field))});
    }
    void add_removed_at_end(const DescribedType& type, const DescribedField& field) {
        changes_.push_back({kLoses, type.name, field.name, "removed", field.kind, "",
                            fmt::format("new readers skip it; of new messages old readers read {}",
                                        value_if_absent(field))});
    }

    void compare_message(const DescribedType& before) {
        const DescribedType* const after = after_.find(before.name);
        if (after == nullptr || !after->id) {
            const auto renamed =
                std::find_if(after_.types().begin(), after_.types().end(), [&](const DescribedType& type) {
                    return type.id && before_.find(type.name) == nullptr && has_same_fields(before, type);
                });
            if (after == nullptr && renamed != after_.types().end()) {
                is_renamed_.insert(renamed->name);
                add(kBreaks, before, "renamed",
                    "the id is computed from the name: no process has handlers for the other's messages",
                    before.name, renamed->name);
            } else {
                add(kBreaks, before, "removed", "new processes have no handler for its id, and send none");
            }
            return;
        }
        if (*after->id != *before.id) {
            add(kBreaks, before, "other id", "no process has handlers for the other's messages",
                fmt::format("0x{:08X}", *before.id), fmt::format("0x{:08X}", *after->id));
        }
        if (after->module != before.module) {
            add(kCompatible, before, "other module",
                "modules are not on the wire; its handler is registered with the other one", before.module,
                after->module);
        }
        compare_fields(before, *after);
    }

    // Once for a table and what has become of it, wherever they are.
    void compare_fields(const DescribedType& before, const DescribedType& after) {
        if (!compared_.emplace(before.name, after.name).second) return;
        const Fields old_fields = before.fields;
        const Fields new_fields = after.fields;
        const std::size_t least = std::min(old_fields.size(), new_fields.size());
        std::size_t start = 0;
        while (start < least && is_same(old_fields[start], new_fields[start])) ++start;
        std::size_t end = 0;  // how many from the last field on are the same
        while (end < least - start &&
               is_same(old_fields[old_fields.size() - 1 - end], new_fields[new_fields.size() - 1 - end]))
            ++end;

        for (std::size_t i = 0; i < start; ++i) compare_tables(old_fields[i], new_fields[i]);
        if (old_fields.size() != new_fields.size() && end != 0 && start + end == least) {
            shifted(before, after, start, end);
        } else if (old_fields.size() == new_fields.size() &&
                   std::is_permutation(old_fields.begin() + static_cast<std::ptrdiff_t>(start),
                                       old_fields.end(),
                                       new_fields.begin() + static_cast<std::ptrdiff_t>(start), is_same)) {
            exchanged(before, after, start);
        } else {
            for (std::size_t i = start; i < least; ++i) compare_field(before, old_fields[i], new_fields[i]);
            for (const DescribedField& field : new_fields.subspan(least)) add_appended(before, field);
            for (const DescribedField& field : old_fields.subspan(least)) add_removed_at_end(before, field);
        }
    }

    void compare_tables(const DescribedField& before, const DescribedField& after) {
        if (!before.table.empty()) compare_fields(*before_.find(before.table), *after_.find(after.table));
    }

    // Fields were inserted, or removed, before the last `end` of them.
    void shifted(const DescribedType& before, const DescribedType& after, std::size_t start,
                 std::size_t end) {
        const Fields old_fields = before.fields;
        const Fields new_fields = after.fields;
        for (const DescribedField& field : new_fields.subspan(start, new_fields.size() - start - end)) {
            changes_.push_back({kBreaks, before.name, field.name, "inserted", "", field.kind,
                                "it has the slot of another field, and the fields after it move on"});
        }
        for (const DescribedField& field : old_fields.subspan(start, old_fields.size() - start - end)) {
            changes_.push_back({kBreaks, before.name, field.name, "removed", field.kind, "",
                                "the fields after it move into its slot"});
        }
        for (std::size_t left = end; left != 0; --left) {
            moved(before, old_fields[old_fields.size() - left], old_fields.size() - left,
                  new_fields.size() - left);
            compare_tables(old_fields[old_fields.size() - left], new_fields[new_fields.size() - left]);
        }
    }

    // From `start` on they are the same fields in another order.
    void exchanged(const DescribedType& before, const DescribedType& after, std::size_t start) {
        std::set<std::size_t> taken;
        for (const bool in_its_slot : {true, false}) {
            for (std::size_t from = start; from < before.fields.size(); ++from) {
                const bool stays = is_same(before.fields[from], after.fields[from]);
                if (stays != in_its_slot) continue;
                std::size_t to = stays ? from : start;
                while (taken.contains(to) || !is_same(before.fields[from], after.fields[to])) ++to;
                taken.insert(to);
                if (!stays) moved(before, before.fields[from], from, to);
                compare_tables(before.fields[from], after.fields[to]);
            }
        }
    }

    void moved(const DescribedType& type, const DescribedField& field, std::size_t from, std::size_t to) {
        changes_.push_back({kBreaks, type.name, field.name, "moved", fmt::format("field {}", from),
                            fmt::format("field {}", to),
                            "a reader finds a field by its slot, and takes another one for it"});
    }

    // The same slot on both sides.
    void compare_field(const DescribedType& type, const DescribedField& before, const DescribedField& after) {
        const auto add_change = [&](Verdict verdict, const char* what, const std::string& reason,
                                    const std::string& was, const std::string& is) {
            changes_.push_back({verdict, type.name, before.name, what, was, is, reason});
        };
        if (!has_same_name(before, after)) {
            add_change(kBreaks, "renamed",
                       "the bytes are read as before, and may mean something else; records in JSON have the "
                       "other name",
                       before.name, after.name);
        }
        if (has_same_kind(before, after)) return compare_tables(before, after);
        if (before.form == after.form && !before.table.empty()) {
            add_change(
                kCompatible, "other table",
                "names of tables are not on the wire; what differs in its fields is said of " + before.table,
                before.kind, after.kind);
            return compare_tables(before, after);
        }
        const auto [what, reason] = other_kind(before, after);
        add_change(kBreaks, what, reason, before.kind, after.kind);
    }

    const DescribedPackage& before_;
    const DescribedPackage& after_;
    std::vector<Change> changes_;
    std::set<std::string> is_renamed_;
    std::set<std::pair<std::string, std::string>> compared_;
};

}  // namespace

std::vector<Change> changes_between(const DescribedPackage& before, const DescribedPackage& after) {
    return Comparison(before, after).take();
}

std::vector<std::string> messages_with(const DescribedPackage& package, const std::string& table) {
    std::vector<std::string> messages;
    for (const DescribedType& message : package.types()) {
        if (!message.id) continue;
        std::vector<std::string> tables = {message.name};
        for (std::size_t next = 0; next < tables.size(); ++next) {
            for (const DescribedField& field : package.find(tables[next])->fields) {
                if (!field.table.empty() &&
                    std::find(tables.begin(), tables.end(), field.table) == tables.end())
                    tables.push_back(field.table);
            }
        }
        if (std::find(tables.begin(), tables.end(), table) != tables.end()) messages.push_back(message.name);
    }
    return messages;
}

}  // namespace tool
