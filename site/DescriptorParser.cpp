#include "site/DescriptorParser.h"

#include <boost/shared_ptr.hpp>
#include <cstdint>
#include <libxml/parser.h>
#include <libxml/tree.h>
#include <libxml/xmlerror.h>
#include <memory>
#include <new>
#include <stdexcept>
#include <utility>

namespace zelto
{

namespace
{

constexpr char rootName[] = "INSTANCE-DATA";
constexpr char sectionName[] = "SECTION";
constexpr char prefixName[] = "PREFIX";
constexpr char fileName[] = "FILE";

using Document = boost::shared_ptr<xmlDoc>;

struct Release {
    void operator()(xmlChar* text) const { xmlFree(text); }
};

using XmlText = std::unique_ptr<xmlChar, Release>;

const xmlChar* xml(const char* text)
{
    return reinterpret_cast<const xmlChar*>(text);
}

bool equal(const xmlChar* text, const char* expected)
{
    return xmlStrcmp(text, xml(expected)) == 0;
}

/// A document type or a processing instruction may have an element's name, too.
bool isElement(const xmlNode* node, const char* name)
{
    return node->type == XML_ELEMENT_NODE && equal(node->name, name);
}

/// Takes back for its lifetime what the rest of the program told libxml2 to load by default.
class NothingFromOutside
{
public:
    NothingFromOutside()
        : substitutes_(xmlSubstituteEntitiesDefault(0)),
          loads_(std::exchange(xmlLoadExtDtdDefaultValue, 0)),
          validates_(std::exchange(xmlDoValidityCheckingDefaultValue, 0))
    {
    }
    ~NothingFromOutside()
    {
        xmlSubstituteEntitiesDefault(substitutes_);
        xmlLoadExtDtdDefaultValue = loads_;
        xmlDoValidityCheckingDefaultValue = validates_;
    }
    NothingFromOutside(const NothingFromOutside&) = delete;
    NothingFromOutside& operator=(const NothingFromOutside&) = delete;

private:
    int substitutes_;
    int loads_;
    int validates_;
};

[[noreturn]] void refuseDocument()
{
    throw std::runtime_error("XML parse error");
}

Document parse(std::string_view text)
{
    if (text.size() > largestDescriptor) {
        refuseDocument();
    }
    const NothingFromOutside guard;
    Document document(xmlParseMemory(text.data(), static_cast<int>(text.size())), xmlFreeDoc);
    if (!document) {
        refuseDocument();
    }
    return document;
}

const xmlNode* rootOf(const Document& document)
{
    const xmlNode* first = document->children;
    if (first == nullptr || !isElement(first, rootName)) {
        throw std::runtime_error("Wrong root node name");
    }
    return first;
}

int kindOf(const xmlNode* section)
{
    const XmlText prefix(xmlGetProp(section, xml(prefixName)));
    if (!prefix) {
        throw std::runtime_error("Attribute name is required for section");
    }
    if (equal(prefix.get(), "htdocs")) {
        return 1;
    }
    if (equal(prefix.get(), "cgi-bin")) {
        return 0;
    }
    throw std::runtime_error("Bad sttribute name value");
}

/// Reads the texts of the "FILE" elements of one document.
class FileTexts
{
public:
    explicit FileTexts(Document document) : document_(std::move(document)) {}

    /// Nothing for an element without a text. There are no entities to substitute but those that
    /// are known to every parser: a document that declares any begins with the declaration, and
    /// that is not the root element.
    XmlText of(const xmlNode* file)
    {
        account(file->children);
        return XmlText(xmlNodeListGetString(document_.get(), file->children, 1));
    }

private:
    /// xmlNodeListGetString() goes through all that it has so far for each piece of a text that is
    /// split by comments or elements: two million pieces took it 23 seconds. Nobody splits a file's
    /// name into thousands, so when it comes to this, the document is refused.
    void account(const xmlNode* piece)
    {
        constexpr std::uint64_t limit = 1'000'000'000;
        std::uint64_t length = 0;
        for (; piece != nullptr; piece = piece->next) {
            if (piece->type == XML_TEXT_NODE || piece->type == XML_CDATA_SECTION_NODE) {
                goneThrough_ += length;
                length += static_cast<std::uint64_t>(xmlStrlen(piece->content));
            }
        }
        if (goneThrough_ > limit) {
            refuseDocument();
        }
    }

    Document document_;
    std::uint64_t goneThrough_ = 0;
};

void addSection(const xmlNode* section, FileTexts& texts, std::vector<TreeEntry>& entries)
{
    const int kind = kindOf(section);
    for (const xmlNode* child = section->children; child != nullptr; child = child->next) {
        if (!isElement(child, fileName)) {
            continue;
        }
        if (const XmlText text = texts.of(child)) {
            entries.push_back({kind, reinterpret_cast<const char*>(text.get())});
        }
    }
}

std::vector<TreeEntry> entriesOf(std::string_view text)
{
    const Document document = parse(text);
    FileTexts texts(document);
    std::vector<TreeEntry> entries;
    for (const xmlNode* child = rootOf(document)->children; child != nullptr; child = child->next) {
        if (isElement(child, sectionName)) {
            addSection(child, texts, entries);
        }
    }
    return entries;
}

/// libxml2 goes on without the memory for a name or a part of a text. What it gives from then on,
/// and what is found wrong with it, is not what the document says.
void checkMemory()
{
    const xmlError* error = xmlGetLastError();
    if (error != nullptr && error->code == XML_ERR_NO_MEMORY) {
        throw std::bad_alloc();
    }
}

} // namespace

std::vector<TreeEntry> parseDescriptor(std::string_view text)
{
    xmlResetLastError();
    std::vector<TreeEntry> entries;
    try {
        entries = entriesOf(text);
    } catch (const std::runtime_error&) {
        checkMemory();
        throw;
    }
    checkMemory();
    return entries;
}

} // namespace zelto
