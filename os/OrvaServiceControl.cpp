#include <ovkit/OrvaServiceControl.h>

namespace OrvaSupport
{

namespace
{

const int c_nNotAvailable = 99;

[[noreturn]] void throwNotAvailable()
{
    throw OrvaServiceControlException(c_nNotAvailable, 0);
}

} // namespace

OrvaServiceControl* OrvaServiceControl::CreateOrvaServiceControl(const std::string& name)
{
    return new OrvaServiceControlLin(name);
}

OrvaServiceControl::OrvaServiceControl(const std::string& name) : m_sControlName(name) {}

OrvaServiceControl::~OrvaServiceControl() {}

OrvaServiceControlLin::OrvaServiceControlLin(const std::string& name) : OrvaServiceControl(name) {}

OrvaServiceControlLin::~OrvaServiceControlLin() {}

bool OrvaServiceControlLin::StartService()
{
    throwNotAvailable();
}

bool OrvaServiceControlLin::StopService()
{
    throwNotAvailable();
}

bool OrvaServiceControlLin::RestartService()
{
    throwNotAvailable();
}

int OrvaServiceControlLin::GetServiceStatus()
{
    throwNotAvailable();
}

int OrvaServiceControlLin::GetServiceStartType()
{
    throwNotAvailable();
}

bool OrvaServiceControlLin::SetServiceStartType(unsigned int)
{
    throwNotAvailable();
}

bool OrvaServiceControlLin::IsServiceInstalled()
{
    throwNotAvailable();
}

} // namespace OrvaSupport
