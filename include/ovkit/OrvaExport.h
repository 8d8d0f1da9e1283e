/// \file
/// Visibility control for the ovkit shared library.
///
/// The library is built with hidden visibility: only declarations marked
/// OVKIT_API are part of libovkit.so.1's interface.
#ifndef OVKIT_ORVAEXPORT_H
#define OVKIT_ORVAEXPORT_H

/// Marks a class, function or object as part of the library's interface.
#define OVKIT_API __attribute__((visibility("default")))
/// Keeps a member of an exported class out of the library's interface.
#define OVKIT_LOCAL __attribute__((visibility("hidden")))

#endif // OVKIT_ORVAEXPORT_H
