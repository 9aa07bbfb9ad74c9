#include <cstdio>
#include <cstdlib>

#include "fuzz/Property.h"

void propertyBroken(const char* property)
{
    (void)std::fprintf(stderr, "This does not hold: %s\n", property);
    std::abort();
}
