#include "support/TSysCallErr.h"

#include <cstring>

namespace zelto::sys
{

TSysCallErr::TSysCallErr(int err) : TSysErr(std::strerror(err)), err_(err) {}

TSysCallErr::~TSysCallErr() = default;

} // namespace zelto::sys
