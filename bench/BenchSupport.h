// Helpers shared by the benchmark programs: a scratch directory and a
// processor pin for the threaded measures.
#ifndef OVKIT_BENCH_BENCHSUPPORT_H
#define OVKIT_BENCH_BENCHSUPPORT_H

#include <pthread.h>
#include <sched.h>

#include <cstdlib>
#include <filesystem>
#include <string>

namespace ovkit_bench
{

/// A fresh directory under the system's temporary folder, removed with its
/// contents at the end of the scope (or at exit, for a static one).
class ScratchDir
{
public:
    ScratchDir() : m_sPath((std::filesystem::temp_directory_path() / "ovkit-bench-XXXXXX").string())
    {
        if (!mkdtemp(&m_sPath[0]))
            abort();
    }
    ~ScratchDir()
    {
        std::error_code ignored;
        std::filesystem::remove_all(m_sPath, ignored);
    }
    ScratchDir(const ScratchDir&) = delete;
    ScratchDir& operator=(const ScratchDir&) = delete;

    std::string file(const std::string& name) const { return m_sPath + "/" + name; }

private:
    std::string m_sPath;
};

/// Holds the calling thread on one processor until the end of the scope, then
/// gives it back the set it had. Left to the scheduler, the two threads of a
/// two-thread run sometimes share one processor and sometimes do not, which
/// makes runs differ several times over; so thread i goes to the i-th
/// processor it may use (nothing happens if there is only one).
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

} // namespace ovkit_bench

#endif // OVKIT_BENCH_BENCHSUPPORT_H
