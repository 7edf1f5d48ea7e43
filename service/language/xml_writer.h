// XmlWriter: well-formed XML 1.0, written element by element into memory.
//
//   XmlWriter xml;
//   xml.Start("PROPERTY"); xml.Attribute("NAME", name); xml.Text(value); xml.End();
//   Result<std::string_view> text = xml.Finish();
//
// Any UTF-8 text may be written, and what a parser reads back is that text, white space and line ends
// included, but for the characters that XML 1.0 cannot carry, not even escaped. Each of these becomes one
// other character:
//
//   U+0000 to U+001F without tab, line feed, carriage return:  their pictures, U+2400 to U+241F
//   U+FFFE, U+FFFF:                                            U+FFFD
//
// so a reader still sees which control character stood there, and texts of different characters stay
// different unless they hold the pictures themselves. Texts must be UTF-8.
//
// The text has no XML declaration, no indentation and no line ends of its own.
//
// libxml2's writer does it; what stands here is what that leaves to its caller: which characters there are,
// how long a text may be, and what becomes of a failure.
//
// A writer belongs to one thread at a time.
#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <string_view>

#include <libxml/xmlwriter.h>

#include "service/model/status.h"

namespace service {

// Bytes of UTF-8 in one XML text.
inline constexpr size_t kMaxXmlBytes = size_t{256} << 20;

class XmlWriter {
 public:
    // Throws std::bad_alloc, as all that writes does.
    explicit XmlWriter(size_t max_bytes = kMaxXmlBytes);
    XmlWriter(const XmlWriter&) = delete;
    XmlWriter& operator=(const XmlWriter&) = delete;

    // Names of elements and attributes are XML names.
    void Start(const char* element);
    // Only between Start and what is in the element. A tab or line end in `value` survives a parser.
    void Attribute(const char* name, std::string_view value);
    void Text(std::string_view text);
    void End();

    // Whether more than `max_bytes` were written; then the rest is worth no effort, because Finish fails.
    bool IsFull() const noexcept { return given_ > max_bytes_; }
    size_t BytesLeft() const noexcept { return IsFull() ? 0 : max_bytes_ - given_; }

    // The text, valid until the writer is used again; WBEM_E_TOO_MUCH_DATA when it is longer than it may be.
    // Every element must have its End.
    Result<std::string_view> Finish();

 private:
    struct FreeWriter {
        void operator()(xmlTextWriter* writer) const noexcept { xmlFreeTextWriter(writer); }
    };

    static int Receive(void* writer, const char* bytes, int count) noexcept;
    const xmlChar* Prepare(std::string_view text);
    void Check(int result);

    const size_t max_bytes_;
    size_t given_ = 0;  // at least so many bytes will the text have
    std::string text_;
    std::string prepared_;  // what libxml2 gets next
    std::unique_ptr<xmlTextWriter, FreeWriter> writer_;
};

}  // namespace service
