// The publishing factory over the recording stand-ins. Everything that it includes comes first, so
// that the names change in the factory alone.

#include "publish/RecordedFramework.hpp"

#include "publish/MethodHandlers.hpp"
#include "publish/StreamBufferService.hpp"
#include "streambuf/StreamBufferImpl.hpp"

#include <cppmicroservices/AnyMap.h>

#include <boost/uuid/uuid_io.hpp>

#include <stdexcept>

#define getFramework getRecordedFramework
#define ORVIConfigurationBuilder RecordedConfigurationBuilder

#include "publish/Publish.cpp"
