#include "tests/fuzz/Targets.h"

#include <algorithm>
#include <cstdio>
#include <exception>
#include <filesystem>
#include <memory>
#include <random>

#include "fuzz/Property.h"
#include "tests/lib/Files.h"

extern "C" {
int runCommandLineFuzzer(const uint8_t* data, size_t size);
int runConfParserFuzzer(const uint8_t* data, size_t size);
int runDescriptorParserFuzzer(const uint8_t* data, size_t size);
int runRegexpFuzzer(const uint8_t* data, size_t size);
int runShellEscapeFuzzer(const uint8_t* data, size_t size);
int runStrnReplaceFuzzer(const uint8_t* data, size_t size);
int runTokenSubstitutionFuzzer(const uint8_t* data, size_t size);
}

namespace
{

struct PropertyBroken {
    std::string property;
};

std::string readable(const std::string& input)
{
    std::string text;
    for (const char c : input) {
        char code[8] = {c};
        if (c < ' ' || c > '~' || c == '\\') {
            (void)std::snprintf(code, sizeof(code), "\\x%02x", static_cast<unsigned char>(c));
        }
        text += code;
    }
    return text;
}

/// Changes texts at random. The generator's numbers are used as they are: what the library's
/// distributions make of them is not the same everywhere.
class Mutator
{
public:
    explicit Mutator(const std::vector<Seed>& seeds) : seeds_(seeds) {}

    std::string next()
    {
        std::string text = anySeed();
        for (size_t changes = 1 + below(4); changes > 0; --changes) {
            change(text);
        }
        return text;
    }

private:
    size_t below(size_t limit) { return static_cast<size_t>(random_() % limit); }

    const std::string& anySeed() { return seeds_[below(seeds_.size())].content; }

    void change(std::string& text)
    {
        const size_t at = below(text.size() + 1);
        const size_t length = 1 + below(8);
        switch (below(6)) {
        case 0:
            text.erase(at, length);
            break;
        case 1:
            text.insert(at, 1, anyByte());
            break;
        case 2:
            text.replace(at, at < text.size() ? 1 : 0, 1, anyByte());
            break;
        case 3:
            text.insert(at, text.substr(below(text.size() + 1), length));
            break;
        case 4:
            text.insert(at, pieceOfASeed());
            break;
        default:
            text = text.substr(0, at) + pieceOfASeed();
            break;
        }
    }

    /// Half of them out of the seeds, which hold what means something.
    char anyByte()
    {
        const std::string& seed = anySeed();
        return seed.empty() || below(2) == 0 ? static_cast<char>(below(256))
                                             : seed[below(seed.size())];
    }

    std::string pieceOfASeed()
    {
        const std::string& seed = anySeed();
        return seed.substr(below(seed.size() + 1), 1 + below(24));
    }

    const std::vector<Seed>& seeds_;
    std::mt19937_64 random_{20240229};
};

} // namespace

void propertyBroken(const char* property)
{
    throw PropertyBroken{property};
}

const std::vector<Target>& allTargets()
{
    static const std::vector<Target> targets = {
        {"CommandLine", runCommandLineFuzzer},
        {"ConfParser", runConfParserFuzzer},
        {"DescriptorParser", runDescriptorParserFuzzer},
        {"Regexp", runRegexpFuzzer},
        {"ShellEscape", runShellEscapeFuzzer},
        {"StrnReplace", runStrnReplaceFuzzer},
        {"TokenSubstitution", runTokenSubstitutionFuzzer},
    };
    return targets;
}

std::vector<Seed> seedsOf(const std::string& target)
{
    namespace fs = std::filesystem;
    std::vector<Seed> seeds;
    const fs::path directory = fs::path(PROJECT_PATH) / "fuzz" / "seeds" / target;
    if (fs::is_directory(directory)) {
        for (const fs::directory_entry& entry : fs::directory_iterator(directory)) {
            const fs::path& path = entry.path();
            seeds.push_back({path.filename().native(), contentOf(path.native())});
        }
    }
    std::sort(seeds.begin(), seeds.end(),
        [](const Seed& left, const Seed& right) { return left.name < right.name; });
    return seeds;
}

std::string replay(int (*run)(const uint8_t* data, size_t size), const std::string& input)
{
    const auto memory = std::make_unique<uint8_t[]>(input.size());
    std::copy(input.begin(), input.end(), memory.get());
    std::string what;
    try {
        run(memory.get(), input.size());
        return "";
    } catch (const PropertyBroken& broken) {
        what = "This does not hold: " + broken.property;
    } catch (const std::exception& exception) {
        what = std::string("This was thrown: ") + exception.what();
    }
    return what + "\nThe input: " + readable(input);
}

std::vector<std::string> mutationsOf(const std::vector<Seed>& seeds, size_t count)
{
    Mutator mutator(seeds);
    std::vector<std::string> inputs;
    while (inputs.size() < count) {
        inputs.push_back(mutator.next());
    }
    return inputs;
}
