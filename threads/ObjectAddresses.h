// The addresses of consecutive objects of an array, for the waits that take
// an array and a count. Not installed.
#ifndef OVKIT_THREADS_OBJECTADDRESSES_H
#define OVKIT_THREADS_OBJECTADDRESSES_H

#include <vector>

namespace OrvaSupport
{
namespace internal
{

/// &first[0] to &first[count - 1]; empty for a count of 0 or below.
template <class T>
std::vector<T*> objectAddresses(int count, T* first)
{
    std::vector<T*> addresses;
    for (int i = 0; i < count; ++i)
        addresses.push_back(&first[i]);
    return addresses;
}

} // namespace internal
} // namespace OrvaSupport

#endif // OVKIT_THREADS_OBJECTADDRESSES_H
