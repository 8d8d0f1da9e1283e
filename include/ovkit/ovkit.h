/// \file
/// Umbrella header: the whole exported interface of libovkit.so.1.
#ifndef OVKIT_OVKIT_H
#define OVKIT_OVKIT_H

#include <ovkit/OrvaCriticalSection.h>
#include <ovkit/OrvaDateTime.h>
#include <ovkit/OrvaEncryption.h>
#include <ovkit/OrvaEvent.h>
#include <ovkit/OrvaEventThread.h>
#include <ovkit/OrvaException.h>
#include <ovkit/OrvaExport.h>
#include <ovkit/OrvaFindFile.h>
#include <ovkit/OrvaFindFileImpl.h>
#include <ovkit/OrvaLibrary.h>
#include <ovkit/OrvaLocaleFactory.h>
#include <ovkit/OrvaLockFactory.h>
#include <ovkit/OrvaLogging.h>
#include <ovkit/OrvaLoggingTimer.h>
#include <ovkit/OrvaMessageSet.h>
#include <ovkit/OrvaModule.h>
#include <ovkit/OrvaNotification.h>
#include <ovkit/OrvaObjectBase.h>
#include <ovkit/OrvaObjectFactory.h>
#include <ovkit/OrvaObjectStream.h>
#include <ovkit/OrvaProcess.h>

#include <ovkit/OrvaProducerConsumer.h>
#include <ovkit/OrvaProgramOptions.h>
#include <ovkit/OrvaProperties.h>
#include <ovkit/OrvaReadWriteLock.h>
#include <ovkit/OrvaRegularExpression.h>
#include <ovkit/OrvaService.h>
#include <ovkit/OrvaServiceControl.h>
#include <ovkit/OrvaStringTraits.h>
#include <ovkit/OrvaStringUtilities.h>
#include <ovkit/OrvaThread.h>
#include <ovkit/OrvaTimer.h>
#include <ovkit/OrvaTokenizer.h>
#include <ovkit/OrvaTreeNode.h>
#include <ovkit/OrvaVersion.h>

#endif // OVKIT_OVKIT_H
