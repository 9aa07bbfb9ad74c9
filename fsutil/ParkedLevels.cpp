#include "fsutil/ParkedLevels.h"

void ParkedLevels::push(const Level& level, const std::string& name)
{
    levels_.push_back({level, name.size()});
    names_ += name;
}

ParkedLevels::Level ParkedLevels::pop(std::string& name)
{
    const Entry entry = levels_.back();
    levels_.pop_back();
    const size_t start = names_.size() - entry.nameLength;
    name.assign(names_, start);
    names_.resize(start);
    return entry.level;
}
