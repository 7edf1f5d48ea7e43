#include <cstdio>
#include <iostream>

#include <comutil.h>

#include "tools/mgmtctl/commands/commands.h"
#include "tools/mgmtctl/failure.h"
#include "tools/mgmtctl/json.h"
#include "tools/mgmtctl/store_report.h"
#include "tools/mgmtctl/table.h"
#include "tools/mgmtctl/text.h"

namespace mgmtctl {
namespace {

struct Limit {
    std::string name;
    std::string unit;
    ULONGLONG most = 0;
    ULONGLONG used = 0;
    bool is_counted = false;
};

std::vector<Limit> ReadLimits() {
    const std::string attempt = "the limits cannot be told";
    const CComPtr<IMgmtStore> store = OpenStore(attempt);
    std::vector<Limit> limits;
    for (ULONG number = 0;; ++number) {
        MgmtStoreLimit limit = {};
        const HRESULT result = store->GetLimit(number, &limit);
        Check(result, attempt);
        if (result != S_OK) return limits;
        const _bstr_t name(limit.name, false);
        const _bstr_t unit(limit.unit, false);
        limits.push_back({Utf8(static_cast<const wchar_t*>(name)), Utf8(static_cast<const wchar_t*>(unit)),
                          limit.limit, limit.used, limit.is_counted != FALSE});
    }
}

double PercentOf(const Limit& limit) {
    return 100.0 * static_cast<double>(limit.used) / static_cast<double>(limit.most);
}

std::string Percent(const Limit& limit) {
    if (!limit.is_counted) return "-";
    char text[32];
    std::snprintf(text, sizeof text, "%.1f %%", PercentOf(limit));
    return text;
}

}  // namespace

void ShowLimits(const Arguments& arguments) {
    const std::vector<Limit> limits = ReadLimits();
    if (arguments.is_json) {
        OrderedJson json = OrderedJson::array();
        for (const Limit& limit : limits) {
            OrderedJson entry = {{"name", limit.name}, {"unit", limit.unit}, {"limit", limit.most}};
            entry["used"] = limit.is_counted ? OrderedJson(limit.used) : OrderedJson();
            entry["percent"] = limit.is_counted ? OrderedJson(PercentOf(limit)) : OrderedJson();
            json.push_back(std::move(entry));
        }
        return PrintJson(json);
    }
    Table table({"Limit", "At most", "In use", "Percent", "Unit"});
    for (const std::size_t column : {1, 2, 3})
        table.AlignRight(column);
    for (const Limit& limit : limits) {
        table.Add({limit.name, Grouped(limit.most), limit.is_counted ? Grouped(limit.used) : "-",
                   Percent(limit), limit.unit});
    }
    table.Print(std::cout);
}

}  // namespace mgmtctl
