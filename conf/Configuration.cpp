#include "conf/Configuration.h"

#include <array>
#include <cerrno>
#include <cstring>
#include <memory>
#include <new>

#include "conf/ConfParser.h"
#include "conf/ConfStore.h"
#include "conf/ConfVariables.h"
#include "conf/FatalLogger.h"

namespace
{

constexpr char configurationFile[] = "/etc/kvo/kvo.conf";

/// Never freed: what look-ups returned must hold until the last static destructor has run.
constinit const ConfStore* loaded = nullptr;

constinit std::array<const char*, confVariableCount> cache{};

std::unique_ptr<ConfStore> emptyStore()
{
    try {
        return std::make_unique<ConfStore>();
    } catch (const std::bad_alloc&) {
        errno = ENOMEM;
        return nullptr;
    }
}

bool isKnown(int index)
{
    return index >= MIN_POSSIBLE_KVO_CONF_VAR && index <= MAX_POSSIBLE_KVO_CONF_VAR;
}

} // namespace

int loadConfiguration()
{
    if (loaded != nullptr) {
        return 0;
    }
    std::unique_ptr<ConfStore> store = emptyStore();
    if (!store) {
        fatalLogger(0, 1, "Not enough memory to allocate Zelto runtime configuration structure\n");
        return -1;
    }
    if (parseConfiguration(configurationFile, *store) != 0) {
        return -1;
    }
    loaded = store.release();
    return 0;
}

const char* valueByNameFromFile(const char* name)
{
    return loadConfiguration() == 0 ? loaded->find(name) : nullptr;
}

const char* valueByIndexFromFile(int index)
{
    if (!isKnown(index)) {
        return nullptr;
    }
    const char*& cached = cache[static_cast<size_t>(index)];
    if (cached == nullptr) {
        cached = valueByNameFromFile(confVariableName(index));
    }
    return cached;
}

const char* variableByIndex(int index)
{
    const char* value = valueByIndexFromFile(index);
    return value != nullptr ? value : confVariableDefault(index);
}

const char* variableByName(const char* name)
{
    for (int index = MIN_POSSIBLE_KVO_CONF_VAR; index < MAX_POSSIBLE_KVO_CONF_VAR; ++index) {
        if (std::strcmp(confVariableName(index), name) == 0) {
            return variableByIndex(index);
        }
    }
    fatalLogger(0, 1, "variable '%s' isn't found neither in %s nor in compile-time defaults\n",
        name, configurationFile);
    return nullptr;
}
