#pragma once

#include <initializer_list>
#include <string>
#include <vector>

/// An argument vector as execv(3) wants it.
class Arguments
{
public:
    Arguments(std::initializer_list<std::string> texts) : texts_(texts)
    {
        for (std::string& text : texts_) {
            pointers_.push_back(text.data());
        }
        pointers_.push_back(nullptr);
    }
    Arguments(const Arguments&) = delete;
    Arguments& operator=(const Arguments&) = delete;

    operator char* const*() const { return pointers_.data(); }

private:
    std::vector<std::string> texts_;
    std::vector<char*> pointers_;
};
