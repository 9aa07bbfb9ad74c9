#pragma once

#include <string>

/// Takes the place of zelto_log and keeps what it is told: "<priority>|<text>|\n" a message, so
/// that newlines at a text's end show. It also spoils `errno`, as a log is free to do.
class RecordedLog
{
public:
    RecordedLog();
    ~RecordedLog();
    RecordedLog(const RecordedLog&) = delete;
    RecordedLog& operator=(const RecordedLog&) = delete;

    [[nodiscard]] static const std::string& text();

private:
    void (*previous_)(int, const char*, ...);
};
