// XML as a parser reads it that forgives nothing.
//
//   const XmlDocument document(text);
//   ASSERT_EQ(document.fault(), "");
//   EXPECT_EQ(document.Text("/INSTANCE/PROPERTY[1]/VALUE"), "5");
//   EXPECT_EQ(document.FaultsAgainst(CimDtd(DtdForm::kCim)), "");
#pragma once

#include <cstdarg>
#include <cstdio>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include <libxml/parser.h>
#include <libxml/valid.h>
#include <libxml/xpath.h>

class XmlDocument {
 public:
    explicit XmlDocument(std::string_view text) {
        const std::unique_ptr<xmlParserCtxt, Free<xmlFreeParserCtxt>> parser(xmlNewParserCtxt());
        document_.reset(
            xmlCtxtReadMemory(parser.get(), text.data(), static_cast<int>(text.size()), nullptr, "UTF-8",
                              XML_PARSE_NONET | XML_PARSE_HUGE | XML_PARSE_NOERROR | XML_PARSE_NOWARNING));
        if (const xmlError* error = xmlCtxtGetLastError(parser.get()); error || !document_) {
            fault_ = error ? error->message : "no document";
        }
    }

    // Why the text is not well-formed; empty when it is.
    const std::string& fault() const noexcept { return fault_; }

    std::string FaultsAgainst(const std::string& dtd_text) const {
        if (!document_) return fault_;
        xmlDtd* const dtd = Parsed(dtd_text);
        if (!dtd) return "the DTD is malformed";
        const std::unique_ptr<xmlValidCtxt, Free<xmlFreeValidCtxt>> validation(xmlNewValidCtxt());
        std::string faults;
        validation->userData = &faults;
        validation->error = &Append;
        const bool is_valid = xmlValidateDtd(validation.get(), document_.get(), dtd) == 1;
        return is_valid ? "" : "not valid: " + faults;
    }

    // What XPath `expression` finds: the text of each node, or the values of the attributes.
    std::vector<std::string> Texts(const std::string& expression) const {
        std::vector<std::string> texts;
        if (!document_) return texts;
        const std::unique_ptr<xmlXPathContext, Free<xmlXPathFreeContext>> context(
            xmlXPathNewContext(document_.get()));
        const std::unique_ptr<xmlXPathObject, Free<xmlXPathFreeObject>> found(
            xmlXPathEvalExpression(reinterpret_cast<const xmlChar*>(expression.c_str()), context.get()));
        if (!found || !found->nodesetval) return texts;
        for (int i = 0; i < found->nodesetval->nodeNr; ++i) {
            xmlChar* content = xmlNodeGetContent(found->nodesetval->nodeTab[i]);
            texts.emplace_back(reinterpret_cast<const char*>(content));
            xmlFree(content);
        }
        return texts;
    }

    // The same of exactly one node.
    std::string Text(const std::string& expression) const {
        const std::vector<std::string> texts = Texts(expression);
        return texts.size() == 1 ? texts.front() : "(" + std::to_string(texts.size()) + " nodes)";
    }

 private:
    template <auto Function>
    struct Free {
        template <typename Thing>
        void operator()(Thing* thing) const noexcept {
            Function(thing);
        }
    };

    // Kept, because reading one takes longer than validating with it.
    static xmlDtd* Parsed(const std::string& dtd_text) {
        static std::map<std::string, std::unique_ptr<xmlDtd, Free<xmlFreeDtd>>> dtds;
        auto& dtd = dtds[dtd_text];
        if (!dtd) {
            dtd.reset(
                xmlIOParseDTD(nullptr,
                              xmlParserInputBufferCreateMem(
                                  dtd_text.data(), static_cast<int>(dtd_text.size()), XML_CHAR_ENCODING_UTF8),
                              XML_CHAR_ENCODING_UTF8));
        }
        return dtd.get();
    }

    __attribute__((format(printf, 2, 3))) static void Append(void* faults, const char* format, ...) {
        char line[1024];
        va_list arguments;
        va_start(arguments, format);
        std::vsnprintf(line, sizeof line, format, arguments);
        va_end(arguments);
        *static_cast<std::string*>(faults) += line;
    }

    std::unique_ptr<xmlDoc, Free<xmlFreeDoc>> document_;
    std::string fault_;
};

// What comes out of XML for `character`, which XML 1.0 may not be able to carry.
inline char32_t AsXmlCarries(char32_t character) {
    if (character < 0x20 && character != '\t' && character != '\n' && character != '\r')
        return 0x2400 + character;
    return character == 0xFFFE || character == 0xFFFF ? 0xFFFD : character;
}

inline void AppendUtf8Of(char32_t c, std::string& utf8) {
    const auto tail = [&](int shift) { utf8 += static_cast<char>(0x80 | ((c >> shift) & 0x3F)); };
    if (c < 0x80) {
        utf8 += static_cast<char>(c);
    } else if (c < 0x800) {
        utf8 += static_cast<char>(0xC0 | (c >> 6));
        tail(0);
    } else if (c < 0x10000) {
        utf8 += static_cast<char>(0xE0 | (c >> 12));
        tail(6);
        tail(0);
    } else {
        utf8 += static_cast<char>(0xF0 | (c >> 18));
        tail(12);
        tail(6);
        tail(0);
    }
}

inline bool IsSurrogate(char32_t c) {
    return c >= 0xD800 && c <= 0xDFFF;
}

// The characters from `first` to `last` without the surrogates, and what comes out of XML for them.
struct Characters {
    Characters(char32_t first, char32_t last) {
        for (char32_t c = first; c <= last; ++c) {
            if (IsSurrogate(c)) continue;
            AppendUtf8Of(c, written);
            AppendUtf8Of(AsXmlCarries(c), read);
        }
    }
    std::string written;
    std::string read;
};
