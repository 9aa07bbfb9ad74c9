#include "exec/TReadOut.h"

namespace zelto::sys
{

TReadOut::TReadOut() = default;

TReadOut::~TReadOut() = default;

void TReadOut::beforeFork(const TExec& /*exec*/)
{
    pipe_.open();
}

void TReadOut::inParent(const TExec& /*exec*/)
{
    pipe_.closeWriteEnd();
}

void TReadOut::inChild(const TExec& /*exec*/)
{
    pipe_.becomeStandardOutput();
}

} // namespace zelto::sys
