#pragma once

#include <string>

/// Takes the place of zelto_log and keeps what it is told. It also spoils `errno`, as a log is
/// free to do.
class RecordedLog
{
public:
    RecordedLog();
    ~RecordedLog();
    RecordedLog(const RecordedLog&) = delete;
    RecordedLog& operator=(const RecordedLog&) = delete;

    /// The messages since the last take(), "<priority>|<text>|\n" each, so that a newline at a
    /// text's end shows.
    [[nodiscard]] static std::string take();

private:
    void (*previous_)(int, const char*, ...);
};
