// The input is a command line, one word on each line. What is parsed, what is missing and what is
// said about it is compared with a model of the rules of getopt_long(3) and of the program's own.

#include <algorithm>
#include <array>
#include <cstring>
#include <getopt.h>
#include <optional>
#include <string>
#include <vector>

#include "front/CommandLine.h"
#include "fuzz/FatalEnd.h"
#include "fuzz/Input.h"
#include "fuzz/Property.h"

namespace
{

using Words = std::vector<std::string>;
using Text = std::optional<std::string>;

constexpr const char* unknownOption = "Unknown option in command string, see log for details";
constexpr const char* leftOver =
    "Some parameters in command string leave unprocessed. Check parameters please.";

/// An option, and what the parser returns for it, which tells when two beginnings are the same.
struct Option {
    const char* name;
    bool hasValue;
    char returned;
};

constexpr std::array<Option, 16> options = {{
    {"subdomain-name", true, 0},
    {"vhost-name", true, 0},
    {"user-name", true, 0},
    {"old-name", true, 0},
    {"new-name", true, 0},
    {"cl-id", true, 0},
    {"create", false, 0},
    {"remove", false, 0},
    {"change-user", false, 0},
    {"rename", false, 0},
    {"www-root", true, 0},
    {"skip-www-root", false, 0},
    {"cgi-bin-path", true, 'c'},
    {"skip-cgi-bin", false, 'C'},
    {"skip-error-docs", false, 'E'},
    {"help", false, 'h'},
}};

/// The model. What ends the process is thrown.
class Model
{
public:
    explicit Model(const Words& words)
    {
        bool leaves = false;
        for (size_t at = 0; at < words.size(); ++at) {
            const std::string& word = words[at];
            if (word == "--") {
                leaves = leaves || at + 1 < words.size();
                break;
            }
            if (word.starts_with("--")) {
                at += takeLong(word.substr(2), at + 1 < words.size() ? &words[at + 1] : nullptr);
            } else if (word.size() > 1 && word[0] == '-') {
                takeShort(word.substr(1));
            } else {
                leaves = true;
            }
        }
        if (leaves) {
            throw FatalEnd{1, leftOver};
        }
    }

    void check() const
    {
        const bool content = chosen_ == "create" || chosen_ == "change-user";
        const bool isRename = chosen_ == "rename";
        need(!isRename && !chosen_.empty(), "subdomain-name");
        need(!chosen_.empty(), "vhost-name");
        need(content, "user-name");
        need(isRename, "old-name");
        need(isRename, "new-name");
        need(content && !has("skip-www-root"), "www-root");
        need(content && !has("skip-cgi-bin"), "cgi-bin-path");
    }

    /// The value that an option was given last.
    [[nodiscard]] Text value(const std::string& option) const
    {
        Text last;
        for (const auto& [name, value] : given_) {
            last = name == option ? value : last;
        }
        return last;
    }

    [[nodiscard]] bool has(const std::string& option) const { return value(option).has_value(); }

    /// A name as it is kept.
    [[nodiscard]] std::string name(const std::string& option) const
    {
        return value(option).value_or("").substr(0, 4096);
    }

    [[nodiscard]] Operation operation() const
    {
        if (isHelp_) {
            return Operation::help;
        }
        return chosen_ == "create"        ? Operation::create
               : chosen_ == "remove"      ? Operation::remove
               : chosen_ == "change-user" ? Operation::changeUser
               : chosen_ == "rename"      ? Operation::rename
                                          : Operation::none;
    }

private:
    /// The option that a name or its beginning stands for: an exact one, the only one, or the first
    /// of several that look the same to the parser.
    static const Option& find(const std::string& name)
    {
        const Option* first = nullptr;
        bool differs = false;
        for (const Option& option : options) {
            if (option.name == name) {
                return option;
            }
            if (!std::string(option.name).starts_with(name)) {
                continue;
            }
            differs = differs || (first != nullptr && (first->hasValue != option.hasValue ||
                                                          first->returned != option.returned));
            first = first == nullptr ? &option : first;
        }
        if (first == nullptr || differs) {
            throw FatalEnd{1, unknownOption};
        }
        return *first;
    }

    /// @param next the word behind, null behind the last.
    /// @return how many further words were taken.
    size_t takeLong(const std::string& text, const std::string* next)
    {
        const size_t equal = text.find('=');
        const Option& option = find(text.substr(0, equal));
        const bool attached = equal != std::string::npos;
        if (option.hasValue ? !attached && next == nullptr : attached) {
            throw FatalEnd{1, unknownOption};
        }
        take(option.name, attached ? text.substr(equal + 1) : option.hasValue ? *next : "");
        return option.hasValue && !attached ? 1 : 0;
    }

    void takeShort(const std::string& letters)
    {
        for (const char letter : letters) {
            if (letter != 'h') {
                throw FatalEnd{1, unknownOption};
            }
            take("help", "");
        }
    }

    void take(const std::string& option, const std::string& value)
    {
        static const Words operations = {"create", "remove", "change-user", "rename"};
        given_.emplace_back(option, value);
        if (option == "help") {
            isHelp_ = true;
        } else if (std::find(operations.begin(), operations.end(), option) != operations.end() &&
                   chosen_.empty() && !isHelp_) {
            chosen_ = option;
        }
    }

    void need(bool needed, const std::string& option) const
    {
        if (needed && value(option).value_or("").empty()) {
            throw FatalEnd{1, "Miss parameter '" + option + "' or previos parameter empty.\n"};
        }
    }

    std::vector<std::pair<std::string, std::string>> given_;
    std::string chosen_; ///< the operation whose parameters are needed
    bool isHelp_ = false;
};

/// How a part of the work ended the process; "" if it did not.
template<class Body>
std::string endOf(Body body)
{
    try {
        body();
    } catch (const FatalEnd& end) {
        must(end.status == 1, "every fatal error ends the process with 1");
        return end.message;
    }
    return "";
}

bool isSame(const char* text, const Text& expected)
{
    return expected ? text != nullptr && text == *expected : text == nullptr;
}

void checkNames(const CommandLine& line, const Model& model)
{
    const struct {
        const CommandLine::Name& name;
        const char* option;
    } rows[] = {
        {line.subdomainName, "subdomain-name"},
        {line.vhostName, "vhost-name"},
        {line.userName, "user-name"},
        {line.oldName, "old-name"},
        {line.newName, "new-name"},
    };
    for (const auto& [name, option] : rows) {
        must(std::memchr(name, '\0', sizeof(name)) != nullptr, "every name is terminated");
        must(name == model.name(option), "a name is kept as it was given last, cut at 4096 bytes");
    }
}

void checkLine(const CommandLine& line, const Model& model)
{
    checkNames(line, model);
    must(line.operation == model.operation(), "the first operation wins, help replaces it");
    must(isSame(line.clientId.get(), model.value("cl-id")), "the client id is as given");
    must(isSame(line.site.www_root, model.value("www-root")), "the document root is as given");
    must(isSame(line.site.cgi_bin_path, model.value("cgi-bin-path")),
        "the CGI directory is as given");
    must((line.site.skip_www_root != 0) == model.has("skip-www-root") &&
             (line.site.skip_cgi_bin != 0) == model.has("skip-cgi-bin") &&
             (line.site.skip_error_docs != 0) == model.has("skip-error-docs"),
        "what is to be skipped is skipped");
    must(endOf([&] { checkRequiredParameters(line); }) == endOf([&] { model.check(); }),
        "the first parameter that is missing is named");
}

Words wordsOf(Input input)
{
    Words words;
    while (!input.empty()) {
        words.push_back(upToNul(input.line()));
    }
    return words;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    opterr = 0; // the parser's own messages are none of ours
    const Words words = wordsOf(Input(data, size));
    Words copies = words;
    copies.insert(copies.begin(), "twigctl");
    std::vector<char*> arguments;
    for (std::string& word : copies) {
        arguments.push_back(word.data());
    }
    arguments.push_back(nullptr);

    CommandLine line;
    const std::string end =
        endOf([&] { parseCommandLine(static_cast<int>(copies.size()), arguments.data(), line); });
    std::optional<Model> model;
    must(end == endOf([&] { model.emplace(words); }),
        "what cannot be parsed ends the process with the message for it");
    if (model) {
        checkLine(line, *model);
    }
    return 0;
}
