#include "tests/conf/FlushedWrites.h"

#include <cstdio>
#include <memory>

namespace
{

using Stream = std::unique_ptr<FILE, int (*)(FILE*)>;

struct Sink {
    const char* name;
    std::string* log;
};

ssize_t writeToSink(void* cookie, const char* text, size_t size)
{
    const Sink& sink = *static_cast<Sink*>(cookie);
    *sink.log += std::string(sink.name) + '[' + std::string(text, size) + ']';
    return static_cast<ssize_t>(size);
}

Stream streamTo(Sink& sink)
{
    return {fopencookie(&sink, "w", {nullptr, writeToSink, nullptr, nullptr}), std::fclose};
}

} // namespace

std::string flushedWritesOf(const std::function<void()>& body)
{
    std::string log;
    Sink errSink{"err", &log};
    Sink outSink{"out", &log};
    const Stream err = streamTo(errSink);
    const Stream out = streamTo(outSink);
    FILE* const realErr = stderr;
    FILE* const realOut = stdout;
    stderr = err.get();
    stdout = out.get();
    body();
    std::string flushed = log;
    stderr = realErr;
    stdout = realOut;
    return flushed;
}
