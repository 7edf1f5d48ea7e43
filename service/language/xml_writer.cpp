#include "service/language/xml_writer.h"

#include <algorithm>
#include <array>
#include <new>

namespace service {
namespace {

// What an object of a dozen properties needs.
constexpr size_t kUsualBytes = 2'000;

// Besides its name, what an element or an attribute takes at least.
constexpr size_t kMarkupBytes = 3;

bool IsControl(char c) noexcept {
    return static_cast<unsigned char>(c) < 0x20 && c != '\t' && c != '\n' && c != '\r';
}

bool IsNoncharacter(std::string_view bytes) noexcept {
    return bytes.starts_with("\xEF\xBF\xBE") || bytes.starts_with("\xEF\xBF\xBF");
}

bool MayNeedReplacing(char c) noexcept {
    return IsControl(c) || c == '\xEF';
}

void AppendReplaced(std::string_view text, std::string& out) {
    for (size_t i = 0; i < text.size(); ++i) {
        if (IsControl(text[i])) {
            const std::array picture{'\xE2', '\x90', static_cast<char>(0x80 + text[i])};
            out.append(picture.data(), picture.size());
        } else if (text[i] == '\xEF' && IsNoncharacter(text.substr(i))) {
            out += "\xEF\xBF\xBD";
            i += 2;
        } else {
            out += text[i];
        }
    }
}

const xmlChar* XmlText(const char* text) noexcept {
    return reinterpret_cast<const xmlChar*>(text);
}

}  // namespace

XmlWriter::XmlWriter(size_t max_bytes) : max_bytes_(max_bytes) {
    // libxml2 wants this done before threads use it.
    [[maybe_unused]] static const bool is_initialized = (xmlInitParser(), true);
    text_.reserve(std::min(kUsualBytes, max_bytes));
    xmlOutputBuffer* const output = xmlOutputBufferCreateIO(&Receive, nullptr, this, nullptr);
    if (!output) throw std::bad_alloc();
    writer_.reset(xmlNewTextWriter(output));
    if (writer_) return;
    xmlOutputBufferClose(output);
    throw std::bad_alloc();
}

// Nothing but a lack of memory makes libxml2 fail, and it takes no exception.
int XmlWriter::Receive(void* writer, const char* bytes, int count) noexcept {
    try {
        static_cast<XmlWriter*>(writer)->text_.append(bytes, static_cast<size_t>(count));
        return count;
    } catch (const std::bad_alloc&) {
        return -1;
    }
}

void XmlWriter::Check(int result) {
    if (result < 0) throw std::bad_alloc();
}

// The characters that XML can carry, ended by a zero. Of a text that is too long anyway only the beginning.
const xmlChar* XmlWriter::Prepare(std::string_view text) {
    text = text.substr(0, BytesLeft() + 1);
    given_ += text.size();
    prepared_.clear();
    if (std::any_of(text.begin(), text.end(), MayNeedReplacing)) {
        AppendReplaced(text, prepared_);
    } else {
        prepared_ = text;
    }
    return XmlText(prepared_.c_str());
}

void XmlWriter::Start(const char* element) {
    given_ += std::string_view(element).size() + kMarkupBytes;
    Check(xmlTextWriterStartElement(writer_.get(), XmlText(element)));
}

void XmlWriter::Attribute(const char* name, std::string_view value) {
    given_ += std::string_view(name).size() + kMarkupBytes;
    Check(xmlTextWriterWriteAttribute(writer_.get(), XmlText(name), Prepare(value)));
}

void XmlWriter::Text(std::string_view text) {
    if (text.empty()) return;
    Check(xmlTextWriterWriteString(writer_.get(), Prepare(text)));
}

void XmlWriter::End() {
    Check(xmlTextWriterEndElement(writer_.get()));
}

Result<std::string_view> XmlWriter::Finish() {
    Check(xmlTextWriterFlush(writer_.get()));
    if (!IsFull() && text_.size() <= max_bytes_) return std::string_view(text_);
    return Status(WBEM_E_TOO_MUCH_DATA, "the XML text is too long: at most " +
                                            std::to_string(kMaxXmlBytes >> 20) + " MiB are written");
}

}  // namespace service
