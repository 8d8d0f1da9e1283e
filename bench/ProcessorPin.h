// Pinning a benchmark thread to a processor of its own, for the contended
// measures.
#ifndef OVKIT_BENCH_PROCESSORPIN_H
#define OVKIT_BENCH_PROCESSORPIN_H

#include <pthread.h>
#include <sched.h>

// Holds the calling thread on one processor until the end of the scope, then
// gives it back the set it had. Left to the scheduler, the two threads of a
// contended run sometimes share one processor and hardly ever meet at the
// lock, and sometimes do not, which makes runs differ several times over; so
// thread i goes to the i-th processor it may use (nothing happens if there is
// only one).
class ProcessorPin
{
public:
    explicit ProcessorPin(int index)
    {
        m_bPinned = pthread_getaffinity_np(pthread_self(), sizeof(m_saved), &m_saved) == 0;
        if (!m_bPinned || CPU_COUNT(&m_saved) < 2)
        {
            m_bPinned = false;
            return;
        }
        int wanted = index % CPU_COUNT(&m_saved);
        for (int cpu = 0; cpu < CPU_SETSIZE; ++cpu)
        {
            if (CPU_ISSET(cpu, &m_saved) && wanted-- == 0)
            {
                cpu_set_t one;
                CPU_ZERO(&one);
                CPU_SET(cpu, &one);
                m_bPinned = pthread_setaffinity_np(pthread_self(), sizeof(one), &one) == 0;
                break;
            }
        }
    }
    ~ProcessorPin()
    {
        if (m_bPinned)
            pthread_setaffinity_np(pthread_self(), sizeof(m_saved), &m_saved);
    }

    ProcessorPin(const ProcessorPin&) = delete;
    ProcessorPin& operator=(const ProcessorPin&) = delete;

private:
    cpu_set_t m_saved;
    bool m_bPinned;
};

#endif // OVKIT_BENCH_PROCESSORPIN_H
