// Atomic access to fields whose plain type is part of a class's contract (a
// bool flag, an int count, a pointer that clients may read), so they cannot be
// std::atomic. Each helper names its memory order, and each use names the
// helper:
//
//     if (loadAcquire(m_pHolder)) ...
//     storeRelease(m_bRunning, false);
//     if (replaceAcquire(word, 0, id)) ...   // compare-and-swap
//
// Not installed.
#ifndef OVKIT_SYNC_ATOMICFIELD_H
#define OVKIT_SYNC_ATOMICFIELD_H

namespace OrvaSupport
{
namespace internal
{

// One function object per operation, parameterised by the order; the named
// helpers below are its instances.
template <int Order>
struct AtomicLoad
{
    template <class T>
    T operator()(const T& field) const
    {
        return __atomic_load_n(&field, Order);
    }
};

template <int Order>
struct AtomicStore
{
    template <class T>
    void operator()(T& field, T value) const
    {
        __atomic_store_n(&field, value, Order);
    }
};

// Replaces `expected` by `desired` with the given order on success; false and
// nothing written when the field held something else.
template <int Order>
struct AtomicReplace
{
    template <class T>
    bool operator()(T& field, T expected, T desired) const
    {
        return __atomic_compare_exchange_n(&field, &expected, desired, false, Order, __ATOMIC_RELAXED);
    }
};

// Stores a value and returns what the field held.
template <int Order>
struct AtomicExchange
{
    template <class T>
    T operator()(T& field, T value) const
    {
        return __atomic_exchange_n(&field, value, Order);
    }
};

inline constexpr AtomicLoad<__ATOMIC_RELAXED> loadRelaxed{};
inline constexpr AtomicStore<__ATOMIC_RELAXED> storeRelaxed{};
inline constexpr AtomicLoad<__ATOMIC_ACQUIRE> loadAcquire{};
inline constexpr AtomicStore<__ATOMIC_RELEASE> storeRelease{};
inline constexpr AtomicLoad<__ATOMIC_SEQ_CST> loadSequenced{};
inline constexpr AtomicStore<__ATOMIC_SEQ_CST> storeSequenced{};
inline constexpr AtomicReplace<__ATOMIC_ACQUIRE> replaceAcquire{};
inline constexpr AtomicReplace<__ATOMIC_RELAXED> replaceRelaxed{};
inline constexpr AtomicExchange<__ATOMIC_RELEASE> exchangeRelease{};

} // namespace internal
} // namespace OrvaSupport

#endif // OVKIT_SYNC_ATOMICFIELD_H
