// What an operation throws, as text, so that a test compares it in one line.
#ifndef OVKIT_TESTS_SUPPORT_THROWN_H
#define OVKIT_TESTS_SUPPORT_THROWN_H

#include <ovkit/OrvaException.h>

#include <string>

namespace ovkit_test
{

/// "text (code)" of the OrvaException that `operation` throws; "nothing
/// thrown" when it returns. Other exceptions pass through.
template <class Operation>
std::string thrownText(Operation operation)
{
    try
    {
        operation();
    }
    catch (const OrvaSupport::OrvaException& e)
    {
        return e.getText() + " (" + std::to_string(e.getCode()) + ")";
    }
    return "nothing thrown";
}

} // namespace ovkit_test

#endif // OVKIT_TESTS_SUPPORT_THROWN_H
