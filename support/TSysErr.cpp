#include "support/TSysErr.h"

namespace zelto::sys
{

TSysErr::~TSysErr() = default;

} // namespace zelto::sys
