// The library's one way of writing a log message.
//
//     OVKIT_LOG(5, "OrvaProperties::loadProperties: loading file " << fileName);
//
// The second argument is the chain of pieces, joined with <<. Nothing of it is
// evaluated unless a log is registered, is switched on, and has a global
// level of at least `level`: a silent log costs two reads. Otherwise the
// pieces go into one record of that level, ended at once.
#ifndef OVKIT_LOG_LOGMESSAGE_H
#define OVKIT_LOG_LOGMESSAGE_H

#include <ovkit/OrvaLogging.h>

#define OVKIT_LOG(level, pieces)                                                                             \
    do                                                                                                       \
    {                                                                                                        \
        if (::OrvaSupport::OrvaLogging::isAccessAllowed() &&                                                 \
            ::OrvaSupport::OrvaLogging::getInstance()->getGlobalLogLevel() >= (level))                       \
        {                                                                                                    \
            *::OrvaSupport::OrvaLogging::getInstance()                                                       \
                << ::OrvaSupport::setloglevel(level) << pieces << ::OrvaSupport::endrecord;                  \
        }                                                                                                    \
    } while (0)

#endif // OVKIT_LOG_LOGMESSAGE_H
