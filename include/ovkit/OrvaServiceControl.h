/// \file
/// Control of a named operating-system service: start, stop, restart, query
/// and the start type.
///
///     OrvaServiceControl* control = OrvaServiceControl::CreateOrvaServiceControl("agent");
///     try { control->StartService(); }
///     catch (const OrvaServiceControlException& e) { /* e.m_nCode == 99: not available */ }
///     delete control;
///
/// The interface is abstract; its only back end, OrvaServiceControlLin, has no
/// way of controlling a service on this platform. Every one of its operations
/// throws OrvaServiceControlException with code 99 and detail 0, whatever the
/// name and the arguments, so that a client learns at run time that the
/// operation is not there. No command is run, no file is touched and nothing
/// is logged. None of the operations returns: their result types only give a
/// back end that could answer somewhere to report through (bool for done or
/// not, int for a status or a start type).
#ifndef OVKIT_ORVASERVICECONTROL_H
#define OVKIT_ORVASERVICECONTROL_H

#include <ovkit/OrvaExport.h>

#include <string>

namespace OrvaSupport
{

/// The failure of a service control operation. A plain value without a base
/// class: it is no OrvaException, carries no text, and is thrown by value.
/// Catch it by this type.
class OVKIT_API OrvaServiceControlException
{
public:
    /// Keeps both values as they are.
    OrvaServiceControlException(int code, int detail) : m_nCode(code), m_nDetail(detail) {}

    /// 99: the operation is not available.
    int m_nCode;
    /// 0.
    int m_nDetail;
};

/// Controls the service named at creation. No base class.
class OVKIT_API OrvaServiceControl
{
public:
    /// A new OrvaServiceControlLin for `name`, which may be any text, also an
    /// empty one or the name of no service. The caller owns the object and
    /// deletes it through this class.
    static OrvaServiceControl* CreateOrvaServiceControl(const std::string& name);

    virtual ~OrvaServiceControl();

    ///@{
    /// Starts, stops or restarts the service, or asks for its status, its
    /// start type or whether it is installed, or sets its start type; see
    /// the top of this file for what a back end returns. Each operation lets
    /// only OrvaServiceControlException leave it.
    virtual bool StartService() = 0;
    virtual bool StopService() = 0;
    virtual bool RestartService() = 0;
    virtual int GetServiceStatus() = 0;
    virtual int GetServiceStartType() = 0;
    virtual bool SetServiceStartType(unsigned int startType) = 0;
    virtual bool IsServiceInstalled() = 0;
    ///@}

protected:
    /// Keeps the name.
    explicit OrvaServiceControl(const std::string& name);

    /// The service's name, as given.
    std::string m_sControlName;
};

/// The back end of this platform: every operation throws
/// OrvaServiceControlException(99, 0), IsServiceInstalled() included.
class OVKIT_API OrvaServiceControlLin : public OrvaServiceControl
{
public:
    /// Keeps the name; touches nothing else.
    explicit OrvaServiceControlLin(const std::string& name);
    ~OrvaServiceControlLin() override;

    ///@{
    /// Throws OrvaServiceControlException(99, 0).
    bool StartService() override;
    bool StopService() override;
    bool RestartService() override;
    int GetServiceStatus() override;
    int GetServiceStartType() override;
    bool SetServiceStartType(unsigned int startType) override;
    bool IsServiceInstalled() override;
    ///@}
};

} // namespace OrvaSupport

#endif // OVKIT_ORVASERVICECONTROL_H
