// The example daemon's service: a thread that writes one log record per
// timer tick, from onStart to onStop.
#ifndef OVKIT_EXAMPLES_TICKD_TICKSERVICE_H
#define OVKIT_EXAMPLES_TICKD_TICKSERVICE_H

#include <ovkit/OrvaProperties.h>
#include <ovkit/OrvaService.h>
#include <ovkit/OrvaThread.h>
#include <ovkit/OrvaTimer.h>

#include <atomic>
#include <string>

namespace tickd
{

/// What the configuration file says, checked.
struct TickSettings
{
    long intervalSeconds = 1;
    std::string name = "tickd";
    int tickLevel = 3;
    int logLevel = -2; // -2: leave the log's level as the command line set it
};

/// Reads the settings from the property table. On a value that cannot be used
/// returns false with a message in `error`.
bool readSettings(const OrvaSupport::OrvaProperties<std::string>& config, TickSettings& settings,
                  std::string& error);

class TickService;

/// Waits for each tick of the service's timer and logs it.
class TickThread : public OrvaSupport::OrvaThread
{
public:
    explicit TickThread(TickService& service) : OrvaThread(std::string("tick")), m_rService(service) {}
    int run() override;

private:
    TickService& m_rService;
};

class TickService : public OrvaSupport::OrvaService
{
public:
    /// `tickLimit` 0 runs until a signal; otherwise the service stops itself
    /// after that many ticks. `pidFile`, when not empty, receives the pid of
    /// the process that runs the service.
    TickService(const OrvaSupport::OrvaProperties<std::string>& config, long tickLimit, std::string pidFile);
    ~TickService() override;

    bool onStart(const std::string& configPath) override;
    void onStop() override;

    /// Called by the tick thread: logs one tick, and asks for the stop when
    /// the limit is reached. Returns false when the thread should end.
    bool tick();
    OrvaSupport::OrvaTimer& timer() { return m_oTimer; }

private:
    const OrvaSupport::OrvaProperties<std::string>& m_rConfig;
    TickSettings m_oSettings;
    const long m_nTickLimit;
    const std::string m_sPidFile;
    long m_nTicks = 0;
    // Set by whoever stops the service, read by the tick thread at each tick.
    std::atomic<bool> m_bStopping{false};
    OrvaSupport::OrvaTimer m_oTimer;
    TickThread m_oThread;
};

} // namespace tickd

#endif // OVKIT_EXAMPLES_TICKD_TICKSERVICE_H
