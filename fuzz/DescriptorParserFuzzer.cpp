// The input is a descriptor. The entries are compared with what the parser's events give, which is
// another road than the tree that the library goes through, and must be the same when they are
// written down again. Nothing may be loaded, whatever the program has told libxml2.

#include <cstring>
#include <libxml/parser.h>
#include <libxml/xmlerror.h>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "fuzz/Property.h"
#include "site/DescriptorParser.h"

namespace
{

struct Entry {
    int kind = 0;
    std::string path;
    bool operator==(const Entry&) const = default;
};

using Entries = std::vector<Entry>;

/// What came of a descriptor: an error, or entries.
struct Outcome {
    std::string error;
    Entries entries;
    bool operator==(const Outcome&) const = default;
};

constexpr const char* parseError = "XML parse error";
constexpr const char* wrongRoot = "Wrong root node name";

bool loaded = false;

xmlParserInput* refuseToLoad(const char* /*url*/, const char* /*id*/, xmlParserCtxt* /*context*/)
{
    loaded = true;
    return nullptr;
}

void sayNothing(void* /*context*/, const char* /*format*/, ...) {}

/// The worst that a program can have set.
void prepareParser()
{
    xmlSetGenericErrorFunc(nullptr, sayNothing);
    xmlSetExternalEntityLoader(refuseToLoad);
    xmlSubstituteEntitiesDefault(1);
    xmlLoadExtDtdDefaultValue = 1;
    xmlDoValidityCheckingDefaultValue = 1;
}

/// Whether the program's settings are as prepareParser() made them; the expectation is parsed with
/// the harmless ones.
bool takeSettingsBack()
{
    const bool kept = xmlSubstituteEntitiesDefault(0) == 1 && xmlLoadExtDtdDefaultValue == 1 &&
                      xmlDoValidityCheckingDefaultValue == 1;
    xmlLoadExtDtdDefaultValue = 0;
    xmlDoValidityCheckingDefaultValue = 0;
    return kept;
}

Outcome parsed(const std::string& text)
{
    Outcome outcome;
    prepareParser();
    try {
        for (const zelto::TreeEntry& entry : zelto::parseDescriptor(text)) {
            outcome.entries.push_back({entry.kind, entry.path.native()});
        }
    } catch (const std::runtime_error& error) {
        outcome.error = error.what();
    }
    must(takeSettingsBack(), "the program's settings of the parser are left as they were");
    must(!loaded, "nothing is loaded from outside");
    return outcome;
}

/// The same by events.
class Expectation
{
public:
    explicit Expectation(const std::string& text)
    {
        // What is not set is not asked; what libxml2 would set works on trees.
        xmlSAXHandler handler{};
        handler.initialized = XML_SAX2_MAGIC;
        handler.internalSubset = [](void* self, const xmlChar*, const xmlChar*, const xmlChar*) {
            of(self).hasType_ = true;
        };
        handler.comment = [](void* self, const xmlChar*) { of(self).otherBeforeRoot(); };
        handler.processingInstruction = [](void* self, const xmlChar*, const xmlChar*) {
            of(self).otherBeforeRoot();
        };
        handler.startElementNs = begin;
        handler.endElementNs = [](void* self, const xmlChar*, const xmlChar*, const xmlChar*) {
            of(self).end();
        };
        handler.characters = addText;
        handler.ignorableWhitespace = addText;
        handler.cdataBlock = addText;
        wellFormed_ =
            xmlSAXUserParseMemory(&handler, this, text.data(), static_cast<int>(text.size())) == 0;
    }

    /// With a document type, entities could be declared, which only a tree keeps.
    [[nodiscard]] bool isCertain() const { return !hasType_; }

    [[nodiscard]] Outcome outcome() const
    {
        if (!wellFormed_) {
            return {parseError, {}};
        }
        return error_.empty() ? Outcome{"", entries_} : Outcome{error_, {}};
    }

private:
    static Expectation& of(void* self) { return *static_cast<Expectation*>(self); }

    static void addText(void* self, const xmlChar* text, int length)
    {
        Expectation& all = of(self);
        if (all.inFile_ && all.depth_ == 3) {
            all.text_ = all.text_.value_or("");
            all.text_->append(reinterpret_cast<const char*>(text), static_cast<size_t>(length));
        }
    }

    /// A name whose prefix stands for nothing is kept with it.
    static std::string nameOf(const xmlChar* name, const xmlChar* prefix, const xmlChar* uri)
    {
        const std::string local = reinterpret_cast<const char*>(name);
        return prefix != nullptr && uri == nullptr
                   ? std::string(reinterpret_cast<const char*>(prefix)) + ':' + local
                   : local;
    }

    static void begin(void* self, const xmlChar* name, const xmlChar* prefix, const xmlChar* uri,
        int /*namespaceCount*/, const xmlChar** /*namespaces*/, int attributeCount,
        int /*defaulted*/, const xmlChar** attributes)
    {
        std::optional<std::string> kind;
        for (int i = 0; i < attributeCount && !kind; ++i) {
            const xmlChar** attribute = attributes + 5L * i; // name, prefix, URI, begin, end
            if (nameOf(attribute[0], attribute[1], attribute[2]) == "PREFIX") {
                kind = std::string(reinterpret_cast<const char*>(attribute[3]),
                    reinterpret_cast<const char*>(attribute[4]));
            }
        }
        of(self).begin(nameOf(name, prefix, uri), kind);
    }

    void begin(const std::string& name, const std::optional<std::string>& kind)
    {
        ++depth_;
        if (depth_ == 1 && name != "INSTANCE-DATA") {
            fail(wrongRoot);
        }
        if (depth_ == 1) {
            rootSeen_ = true;
        }
        if (depth_ == 2) {
            inSection_ = name == "SECTION";
            if (inSection_) {
                beginSection(kind);
            }
        }
        if (depth_ == 3 && inSection_ && name == "FILE") {
            inFile_ = true;
            text_.reset();
        }
    }

    void beginSection(const std::optional<std::string>& kind)
    {
        if (!kind) {
            fail("Attribute name is required for section");
        } else if (*kind != "htdocs" && *kind != "cgi-bin") {
            fail("Bad sttribute name value");
        }
        kind_ = kind == "htdocs" ? 1 : 0;
    }

    void end()
    {
        if (depth_ == 3 && inFile_) {
            inFile_ = false;
            if (text_) {
                entries_.push_back({kind_, *text_});
            }
        }
        --depth_;
    }

    void otherBeforeRoot()
    {
        if (!rootSeen_) {
            fail(wrongRoot);
        }
    }

    void fail(const char* error) { error_ = error_.empty() ? error : error_; }

    bool wellFormed_ = false;
    bool hasType_ = false;
    bool rootSeen_ = false;
    std::string error_;
    Entries entries_;
    int depth_ = 0;
    bool inSection_ = false;
    bool inFile_ = false;
    int kind_ = 0;
    std::optional<std::string> text_;
};

std::string asXml(const std::string& text)
{
    std::string xml;
    for (const char c : text) {
        const bool plain = std::strchr("<>&\r", c) == nullptr;
        xml += plain ? std::string(1, c) : "&#" + std::to_string(static_cast<int>(c)) + ';';
    }
    return xml;
}

std::string asDescriptor(const Entries& entries)
{
    std::string xml = "<INSTANCE-DATA>";
    for (const Entry& entry : entries) {
        xml += entry.kind == 1 ? "<SECTION PREFIX='htdocs'>" : "<SECTION PREFIX='cgi-bin'>";
        xml += entry.path.empty() ? "<FILE><![CDATA[]]></FILE>"
                                  : "<FILE>" + asXml(entry.path) + "</FILE>";
        xml += "</SECTION>";
    }
    return xml + "</INSTANCE-DATA>";
}

void checkAgainstEvents(const std::string& text, const Outcome& outcome)
{
    const Expectation expectation(text);
    if (expectation.isCertain()) {
        must(outcome == expectation.outcome(), "the tree holds what the events told");
    } else {
        must(outcome.error == parseError || outcome.error == wrongRoot,
            "a document with a document type is refused");
    }
}

void checkEntries(const std::string& text, const Outcome& outcome)
{
    for (const Entry& entry : outcome.entries) {
        must(entry.kind == 0 || entry.kind == 1, "an entry lies in one of the two trees");
        must(xmlCheckUTF8(reinterpret_cast<const xmlChar*>(entry.path.c_str())) == 1,
            "a path is UTF-8");
    }
    if (outcome.error.empty()) {
        must(parsed(asDescriptor(outcome.entries)) == outcome,
            "entries that are written down are read again");
    }
    if (outcome.error.empty() && text.starts_with("<INSTANCE-DATA")) {
        must(parsed("<!---->" + text).error == wrongRoot, "nothing may stand before the root");
        // For libxml2 a document ends at a NUL behind its root.
        must(text.find('\0') != std::string::npos || parsed(text + "<").error == parseError,
            "nothing may stand behind it");
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    loaded = false;
    const std::string text(reinterpret_cast<const char*>(data), size);
    const Outcome outcome = parsed(text);
    checkAgainstEvents(text, outcome);
    checkEntries(text, outcome);
    xmlSetExternalEntityLoader(xmlNoNetExternalEntityLoader);
    return 0;
}
