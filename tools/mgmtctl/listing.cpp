#include "tools/mgmtctl/listing.h"

#include <algorithm>
#include <memory>
#include <utility>

#include "tools/mgmtctl/columns.h"
#include "tools/mgmtctl/failure.h"
#include "tools/mgmtctl/rows.h"
#include "tools/mgmtctl/sort_key.h"

namespace mgmtctl {
namespace {

constexpr std::size_t AT_ONCE = 100;

using InstancePointer = CComPtr<IWbemClassObject>;

std::unique_ptr<Rows> MakeRows(const ClassDeclaration& declaration, bool has_subclasses,
                               const Arguments& arguments) {
    const Listing& listing = arguments.listing;
    if (!arguments.is_json) {
        return MakeTableRows(ColumnsOf(declaration, listing.properties, has_subclasses),
                             listing.is_full ? Length::WHOLE : Length::SHORT);
    }
    if (listing.properties.empty()) return MakeJsonRows({});
    return MakeJsonRows(ColumnsOf(declaration, listing.properties, false));
}

void PrintAsTheyCome(InstanceStream& stream, std::size_t limit, Rows& rows) {
    while (limit != 0) {
        const std::vector<InstancePointer> some = stream.Next(std::min(limit, AT_ONCE));
        if (some.empty()) break;
        for (const InstancePointer& instance : some)
            rows.Add(*instance);
        rows.Print();
        limit -= some.size();
    }
    rows.Print();
}

// The instances that come first in the order asked for.
class Sorter {
 public:
    Sorter(Column column, bool is_descending, std::size_t limit)
        : column_(std::move(column)), is_descending_(is_descending), limit_(limit) {
        if (CanSortBy(column_.type)) return;
        throw OperationFailure("arrays and objects have no order to sort by");
    }

    void Add(InstancePointer instance) {
        const std::optional<Property> property = PropertyOf(*instance, column_.name);
        held_.push_back(
            {property ? SortKey(property->type, property->value) : SortKey(), std::move(instance)});
        if (held_.size() / 2 > std::max(limit_, AT_ONCE)) Sort();
    }

    void Print(Rows& rows) {
        Sort();
        std::size_t added = 0;
        for (Held& each : held_) {
            rows.Add(*each.instance);
            each.instance.Release();
            if (++added % AT_ONCE == 0) rows.Print();
        }
        rows.Print();
    }

 private:
    struct Held {
        SortKey key;
        InstancePointer instance;
    };

    // What came earlier stays in front of its equals, also in descending order.
    void Sort() {
        std::stable_sort(held_.begin(), held_.end(), [&](const Held& left, const Held& right) {
            return is_descending_ ? right.key < left.key : left.key < right.key;
        });
        if (held_.size() > limit_) held_.resize(limit_);
    }

    const Column column_;
    const bool is_descending_;
    const std::size_t limit_;
    std::vector<Held> held_;
};

void PrintSorted(InstanceStream& stream, const ClassDeclaration& declaration, const Listing& listing,
                 Rows& rows) {
    Sorter sorter(ColumnOf(declaration, listing.sort), listing.is_descending,
                  listing.limit.value_or(SIZE_MAX));
    for (auto some = stream.Next(AT_ONCE); !some.empty(); some = stream.Next(AT_ONCE)) {
        for (InstancePointer& instance : some)
            sorter.Add(std::move(instance));
    }
    sorter.Print(rows);
}

}  // namespace

void PrintListing(InstanceStream& stream, const ClassDeclaration& declaration, bool has_subclasses,
                  const Arguments& arguments) {
    const std::unique_ptr<Rows> rows = MakeRows(declaration, has_subclasses, arguments);
    const Listing& listing = arguments.listing;
    if (!listing.sort.empty()) return PrintSorted(stream, declaration, listing, *rows);
    PrintAsTheyCome(stream, listing.limit.value_or(SIZE_MAX), *rows);
}

}  // namespace mgmtctl
