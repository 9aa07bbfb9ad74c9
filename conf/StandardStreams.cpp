#include "conf/StandardStreams.h"

#include <boost/format.hpp>
#include <cstdio>
#include <ostream>

// The declaration in <iostream>, which cannot be had without the static object beside it that sets
// the streams up at program start. Where std is laid out differently this fails to link.
namespace std
{
extern ostream cout;
extern ostream cerr;
} // namespace std

namespace zelto
{

namespace
{

/// The standard's own handle on the streams: constructed once or more often, it sets them up.
void setUpStreams()
{
    static const std::ios_base::Init streams;
}

} // namespace

std::ostream& standardError()
{
    setUpStreams();
    return std::cerr;
}

void reportException(const std::exception& exception)
{
    const char* text = exception.what();
    if (text == nullptr) {
        standardError().setstate(std::ios_base::failbit);
        return;
    }
    standardError() << boost::format("%1%\n") % text;
}

void flushStandardStreams()
{
    setUpStreams();
    std::cout.flush();
    std::cerr.flush();
    (void)std::fflush(stdout);
}

} // namespace zelto
