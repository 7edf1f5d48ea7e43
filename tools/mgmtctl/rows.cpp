#include "tools/mgmtctl/rows.h"

#include <iostream>
#include <utility>

#include "tools/mgmtctl/json.h"
#include "tools/mgmtctl/output.h"
#include "tools/mgmtctl/table.h"
#include "tools/mgmtctl/text.h"

namespace mgmtctl {
namespace {

bool IsNumber(CIMTYPE type) {
    switch (type) {
        case CIM_SINT8:
        case CIM_UINT8:
        case CIM_SINT16:
        case CIM_UINT16:
        case CIM_SINT32:
        case CIM_UINT32:
        case CIM_SINT64:
        case CIM_UINT64:
        case CIM_REAL32:
        case CIM_REAL64:
            return true;
        default:
            return false;
    }
}

std::vector<std::string> HeadingsOf(const std::vector<Column>& columns) {
    std::vector<std::string> headings;
    headings.reserve(columns.size());
    for (const Column& column : columns)
        headings.push_back(Utf8(column.name));
    return headings;
}

class TableRows final : public Rows {
 public:
    TableRows(const std::vector<Column>& columns, Length length)
        : columns_(columns), length_(length), table_(HeadingsOf(columns)), cells_(columns.size()) {
        for (std::size_t i = 0; i < columns.size(); ++i) {
            if (IsNumber(columns[i].type)) table_.AlignRight(i);
        }
        const std::size_t terminal = TerminalColumns();
        if (terminal != 0 && length == Length::SHORT) table_.CutToFit(terminal);
    }

    // A property that this instance does not have leaves its cell empty.
    void Add(IWbemClassObject& object) override {
        for (std::size_t i = 0; i < columns_.size(); ++i) {
            const std::optional<Property> property = PropertyOf(object, columns_[i].name);
            cells_[i] = property ? CellText(property->type, property->value, length_) : std::string();
        }
        table_.Add(cells_);
    }

    void Print() override {
        table_.Print(std::cout);
        FlushOutput();
    }

 private:
    const std::vector<Column> columns_;
    const Length length_;
    Table table_;
    std::vector<std::string> cells_;
};

class JsonRows final : public Rows {
 public:
    explicit JsonRows(const std::vector<Column>& columns) {
        for (const Column& column : columns)
            names_.push_back(column.name);
    }

    void Add(IWbemClassObject& object) override {
        std::cout << (names_.empty() ? ToJson(object) : ToJson(object, names_)).dump() << '\n';
    }

    void Print() override { FlushOutput(); }

 private:
    std::vector<std::wstring> names_;
};

}  // namespace

std::unique_ptr<Rows> MakeTableRows(const std::vector<Column>& columns, Length length) {
    return std::make_unique<TableRows>(columns, length);
}

std::unique_ptr<Rows> MakeJsonRows(const std::vector<Column>& columns) {
    return std::make_unique<JsonRows>(columns);
}

}  // namespace mgmtctl
