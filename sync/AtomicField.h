// Atomic access to fields whose plain type is part of a class's contract (a
// bool flag, an int count, a pointer that clients may read), so they cannot be
// std::atomic. One pair of helpers per memory order; each use names its order.
// Not installed.
#ifndef OVKIT_SYNC_ATOMICFIELD_H
#define OVKIT_SYNC_ATOMICFIELD_H

namespace OrvaSupport
{
namespace internal
{

template <class T>
inline T loadRelaxed(const T& field)
{
    return __atomic_load_n(&field, __ATOMIC_RELAXED);
}

template <class T>
inline void storeRelaxed(T& field, T value)
{
    __atomic_store_n(&field, value, __ATOMIC_RELAXED);
}

template <class T>
inline T loadAcquire(const T& field)
{
    return __atomic_load_n(&field, __ATOMIC_ACQUIRE);
}

template <class T>
inline void storeRelease(T& field, T value)
{
    __atomic_store_n(&field, value, __ATOMIC_RELEASE);
}

template <class T>
inline T loadSequenced(const T& field)
{
    return __atomic_load_n(&field, __ATOMIC_SEQ_CST);
}

template <class T>
inline void storeSequenced(T& field, T value)
{
    __atomic_store_n(&field, value, __ATOMIC_SEQ_CST);
}

/// Replaces `expected` by `desired` with acquire order on success; false and
/// nothing written when the field held something else.
template <class T>
inline bool replaceAcquire(T& field, T expected, T desired)
{
    return __atomic_compare_exchange_n(&field, &expected, desired, false, __ATOMIC_ACQUIRE, __ATOMIC_RELAXED);
}

/// The same with relaxed order.
template <class T>
inline bool replaceRelaxed(T& field, T expected, T desired)
{
    return __atomic_compare_exchange_n(&field, &expected, desired, false, __ATOMIC_RELAXED, __ATOMIC_RELAXED);
}

/// Stores `value` with release order and returns what the field held.
template <class T>
inline T exchangeRelease(T& field, T value)
{
    return __atomic_exchange_n(&field, value, __ATOMIC_RELEASE);
}

} // namespace internal
} // namespace OrvaSupport

#endif // OVKIT_SYNC_ATOMICFIELD_H
