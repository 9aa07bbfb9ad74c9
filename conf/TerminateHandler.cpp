#include "conf/TerminateHandler.h"

#include <cstdio>
#include <cstdlib>
#include <exception>

void installTerminateHandler()
{
    std::set_terminate(unexpectedErrorHandler);
}

void unexpectedErrorHandler()
{
    // terminate() is also called with no exception in flight, where a bare "throw" would lead
    // straight back here.
    if (const std::exception_ptr error = std::current_exception()) {
        try {
            std::rethrow_exception(error);
        } catch (const std::exception& exception) {
            if (const char* const text = exception.what()) {
                (void)std::fprintf(stderr, "Unexpected error: %s\n", text);
                std::exit(1);
            }
        } catch (...) {
        }
    }
    (void)std::fputs("Unexpected error\n", stderr);
    std::exit(1);
}
