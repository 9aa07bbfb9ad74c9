#include "exec/DescriptorStrings.h"

#include <cstddef>

#include "exec/FrontWriter.h"
#include "exec/ReadAvailable.h"

void writeToString(int fd, std::string& data)
{
    zelto::FrontWriter(data).write(fd);
}

bool readToString(int fd, std::string& out)
{
    constexpr std::size_t atOnce = 4096;
    return zelto::readAvailable(fd, out, atOnce, std::string::npos);
}
