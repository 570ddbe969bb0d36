#pragma once

#include <orvi/core/Invokable.hpp>
#include <orvi/core/ServiceProvider.hpp>
#include <orvi/frameworksetup/ORVIConfiguration.hpp>

#include <cppmicroservices/ServiceRegistration.h>

#include <stdexcept>
#include <string>

namespace agent::orvi::remoting::test {

/// An error of a type that only the publisher knows.
class ForeignError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// A service that is no stream, published in this process as streams are, with these methods:
///
/// - "fail" throws the error that its argument, a text, names: "range", "system", "refused",
///   "foreign", "number" or "payload";
/// - "echo" answers with its arguments as they are;
/// - "slots" answers with the number of its arguments, and "packed" with whether slot 0 has all;
/// - "later" answers with a future of a text, "broken" with one whose promise is broken and
///   "future-error" with one that holds an error;
/// - "length" and "sum" are adapted functions of one text and of a number and an int;
/// - "unanswered", of the interface with ".raw" behind its name, drops the handler.
class ForeignService {
public:
    explicit ForeignService(const std::string& name);
    ~ForeignService();

    ForeignService(const ForeignService&) = delete;
    ForeignService& operator=(const ForeignService&) = delete;

private:
    cppmicroservices::ServiceRegistration<core::ServiceProvider> provider;
    frameworksetup::ORVIConfiguration configuration;
    cppmicroservices::ServiceRegistration<core::Invokable> raw;
};

} // namespace agent::orvi::remoting::test
