#pragma once

#include <cppmicroservices/Bundle.h>
#include <cppmicroservices/BundleContext.h>
#include <cppmicroservices/Framework.h>
#include <cppmicroservices/FrameworkEvent.h>
#include <cppmicroservices/FrameworkFactory.h>
#include <cppmicroservices/ServiceEvent.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <memory>
#include <mutex>
#include <string>
#include <typeinfo>
#include <vector>

namespace registry_test {

using namespace cppmicroservices;

/// Expects an exception of exactly this type and text.
template <class Exception, class Action>
void expectThrow(Action const& action, std::string const& text) {
    try {
        action();
        ADD_FAILURE() << "nothing thrown, expected: " << text;
    } catch (Exception const& e) {
        EXPECT_EQ(typeid(e), typeid(Exception)) << typeid(e).name();
        EXPECT_EQ(e.what(), text);
    }
}

struct Codec {
    virtual ~Codec() = default;
    virtual int number() const = 0;
};

struct Encoder {
    virtual ~Encoder() = default;
};

struct CodecImpl : Codec, Encoder {
    explicit CodecImpl(int n = 0)
        : value(n) {}

    int number() const override { return value; }

    int value;
};

inline std::shared_ptr<CodecImpl> codec(int number = 0) {
    return std::make_shared<CodecImpl>(number);
}

inline char const* const codecName = "registry_test::Codec";

inline long idOf(ServiceReferenceBase const& reference) {
    return any_cast<long>(reference.GetProperty("service.id"));
}

/// Records service events as texts such as "REGISTERED 7", safely from any thread.
class EventRecorder {
public:
    ServiceListener listener() {
        return [this](ServiceEvent const& event) {
            std::ostringstream text;
            text << event.GetType() << " " << idOf(event.GetServiceReference());
            std::lock_guard const lock(mutex_);
            events_.push_back(text.str());
        };
    }

    /// Returns the events since the last call.
    std::vector<std::string> take() {
        std::lock_guard const lock(mutex_);
        return std::exchange(events_, {});
    }

private:
    std::mutex mutex_;
    std::vector<std::string> events_;
};

/// A started framework for each case.
class RegistryTest : public testing::Test {
protected:
    RegistryTest()
        : framework(FrameworkFactory().NewFramework()) {
        framework.Start();
        context = framework.GetBundleContext();
    }

    ~RegistryTest() override {
        framework.Stop();
        framework.WaitForStop(std::chrono::milliseconds::zero());
    }

    ServiceRegistration<Codec> registerCodec(ServiceProperties const& properties = {}) {
        return context.RegisterService<Codec>(codec(), properties);
    }

    void stop() {
        framework.Stop();
        auto const result = framework.WaitForStop(std::chrono::milliseconds::zero());
        EXPECT_EQ(result.GetType(), FrameworkEvent::FRAMEWORK_STOPPED);
    }

    Framework framework;
    BundleContext context;
};

/// Collects framework events other than FRAMEWORK_STARTED as texts, with the text of their
/// exception.
class FrameworkEventRecorder {
public:
    explicit FrameworkEventRecorder(BundleContext context) {
        context.AddFrameworkListener([recorded = recorded](FrameworkEvent const& event) {
            std::ostringstream text;
            text << event.GetType() << ": " << event.GetMessage() << " | ";
            try {
                if (event.GetThrowable()) {
                    std::rethrow_exception(event.GetThrowable());
                }
            } catch (std::exception const& e) {
                text << e.what();
            } catch (...) {
                text << "unknown";
            }
            recorded->push_back(text.str());
        });
    }

private:
    // The framework reports its end after the recorder of a test is gone.
    std::shared_ptr<std::vector<std::string>> recorded =
        std::make_shared<std::vector<std::string>>();

public:
    std::vector<std::string>& events = *recorded;
};

} // namespace registry_test
