// The connecting factory over a tracker that can be interrupted. Everything that it includes comes
// first, so that the name changes in the factory alone.

#include "connect/InterruptedTracker.hpp"

#include "connect/RemoteOperations.hpp"
#include "streambuf/StreamBufferImpl.hpp"

#include <foundation/cppmicroservices/getFramework.hpp>
#include <orvi/core/Invokable.hpp>

#include <cppmicroservices/BundleContext.h>
#include <cppmicroservices/Framework.h>
#include <cppmicroservices/LDAPFilter.h>

#include <boost/uuid/uuid_io.hpp>

#include <chrono>
#include <stdexcept>

#define ServiceTracker InterruptedTracker

#include "connect/Connect.cpp"
