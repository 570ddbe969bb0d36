#pragma once

#include <orvi/platform_export.hpp>

#include <string>

namespace cppmicroservices {

/// Names and values of the properties that the framework defines.
namespace Constants {

/// Location and symbolic name of the system bundle.
ORVI_PLATFORM_EXPORT extern std::string const SYSTEM_BUNDLE_LOCATION;
ORVI_PLATFORM_EXPORT extern std::string const SYSTEM_BUNDLE_SYMBOLICNAME;

/// Bundle headers.
ORVI_PLATFORM_EXPORT extern std::string const BUNDLE_DESCRIPTION;
ORVI_PLATFORM_EXPORT extern std::string const BUNDLE_MANIFESTVERSION;
ORVI_PLATFORM_EXPORT extern std::string const BUNDLE_NAME;
ORVI_PLATFORM_EXPORT extern std::string const BUNDLE_SYMBOLICNAME;
ORVI_PLATFORM_EXPORT extern std::string const BUNDLE_VENDOR;
ORVI_PLATFORM_EXPORT extern std::string const BUNDLE_VERSION;

/// Framework properties: set by the framework, or given to FrameworkFactory::NewFramework().
ORVI_PLATFORM_EXPORT extern std::string const FRAMEWORK_VERSION;
ORVI_PLATFORM_EXPORT extern std::string const FRAMEWORK_VENDOR;
ORVI_PLATFORM_EXPORT extern std::string const FRAMEWORK_STORAGE;
ORVI_PLATFORM_EXPORT extern std::string const FRAMEWORK_STORAGE_CLEAN;
ORVI_PLATFORM_EXPORT extern std::string const FRAMEWORK_STORAGE_CLEAN_ONFIRSTINIT;
ORVI_PLATFORM_EXPORT extern std::string const FRAMEWORK_THREADING_SUPPORT;
ORVI_PLATFORM_EXPORT extern std::string const FRAMEWORK_THREADING_SINGLE;
ORVI_PLATFORM_EXPORT extern std::string const FRAMEWORK_THREADING_MULTI;
/// A bool: whether diagnostic lines are written to the logger stream.
ORVI_PLATFORM_EXPORT extern std::string const FRAMEWORK_LOG;
/// A text that identifies a running framework; new after each Framework::Init().
ORVI_PLATFORM_EXPORT extern std::string const FRAMEWORK_UUID;
ORVI_PLATFORM_EXPORT extern std::string const FRAMEWORK_WORKING_DIR;
/// A `std::function<void()>` that runs after each successful Framework::WaitForStop().
ORVI_PLATFORM_EXPORT extern std::string const FRAMEWORK_EXTRA_SHUTDOWN_FUNC;

/// Names of the interfaces of a service: a `std::vector<std::string>` that the framework sets.
ORVI_PLATFORM_EXPORT extern std::string const OBJECTCLASS;
/// Number of a service: a `long` that the framework sets, larger for later registrations.
ORVI_PLATFORM_EXPORT extern std::string const SERVICE_ID;
/// A text that identifies a service across restarts.
ORVI_PLATFORM_EXPORT extern std::string const SERVICE_PID;
/// Rank of a service: an `int`, 0 if absent. Higher ranks are preferred.
ORVI_PLATFORM_EXPORT extern std::string const SERVICE_RANKING;
ORVI_PLATFORM_EXPORT extern std::string const SERVICE_VENDOR;
ORVI_PLATFORM_EXPORT extern std::string const SERVICE_DESCRIPTION;
/// Scope of a service, set by the framework: one of the three values below.
ORVI_PLATFORM_EXPORT extern std::string const SERVICE_SCOPE;
ORVI_PLATFORM_EXPORT extern std::string const SCOPE_SINGLETON;
ORVI_PLATFORM_EXPORT extern std::string const SCOPE_BUNDLE;
ORVI_PLATFORM_EXPORT extern std::string const SCOPE_PROTOTYPE;

} // namespace Constants
} // namespace cppmicroservices
