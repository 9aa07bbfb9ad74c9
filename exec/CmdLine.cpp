#include "exec/CmdLine.h"

namespace zelto
{

CmdLine::~CmdLine() = default;

} // namespace zelto
