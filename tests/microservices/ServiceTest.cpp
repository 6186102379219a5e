#include <algorithm>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "Fixture.h"
#include "cppmicroservices/Constants.h"
#include "cppmicroservices/LDAPFilter.h"
#include "cppmicroservices/LDAPProp.h"

namespace {

using namespace cppmicroservices;

struct Shape {
    virtual ~Shape() = default;
    virtual std::string shape() const { return "shape"; }
};
struct Colour {
    virtual ~Colour() = default;
    virtual std::string colour() const { return "red"; }
};
struct RedShape : Shape, Colour {};
struct Named {};

}  // namespace

CPPMICROSERVICES_DECLARE_SERVICE_INTERFACE(Named, "a name of its own")

namespace {

class ServiceTest : public testing::Test {
protected:
    ServiceRegistration<Shape> add(const ServiceProperties& properties = {}) {
        return context.RegisterService<Shape>(std::make_shared<Shape>(), properties);
    }
    static ServiceProperties ranked(int ranking) { return {{Constants::SERVICE_RANKING, ranking}}; }

    /// The places, in the order of registration, of what is found.
    template <class Reference>
    std::vector<long> places(const std::vector<Reference>& references) {
        std::vector<long> ids;
        for (const auto& reference : references) {
            ids.push_back(any_cast<long>(reference.GetProperty(Constants::SERVICE_ID)) - firstId);
        }
        return ids;
    }

    RunningFramework running;
    BundleContext context = running.context();
    // Frameworks may have services of their own.
    const long firstId = [this] {
        auto registration = context.RegisterService<Colour>(std::make_shared<Colour>());
        const auto id = any_cast<long>(registration.GetReference().GetProperty(Constants::SERVICE_ID));
        registration.Unregister();
        return id + 1;
    }();
};

TEST_F(ServiceTest, isFoundByRankingAndThenByAge) {
    add();
    add(ranked(5));
    auto low = add(ranked(-1));
    add(ranked(5));
    EXPECT_EQ(places(context.GetServiceReferences<Shape>()), (std::vector<long>{1, 3, 0, 2}));
    EXPECT_EQ(places(std::vector{context.GetServiceReference<Shape>()}), std::vector<long>{1});
    low.SetProperties(ranked(6));
    EXPECT_EQ(places(context.GetServiceReferences<Shape>()), (std::vector<long>{2, 1, 3, 0}));
    low.SetProperties(ServiceProperties{});
    EXPECT_EQ(places(context.GetServiceReferences<Shape>()), (std::vector<long>{1, 3, 0, 2}));
}

TEST_F(ServiceTest, comparesBelowWhatIsPreferred) {
    const auto low = add().GetReference();
    const auto high = add(ranked(1)).GetReference();
    const auto younger = add().GetReference();
    EXPECT_TRUE(low < high);
    EXPECT_FALSE(high < low);
    EXPECT_TRUE(younger < low);
    EXPECT_FALSE(low < low);
}

TEST_F(ServiceTest, isInTheOrderOfRegistrationWhenNoInterfaceIsAskedFor) {
    add({{"kind", 1}});
    add({{"kind", 1}, {Constants::SERVICE_RANKING, 5}});
    const std::string none;
    EXPECT_EQ(places(context.GetServiceReferences(none, "(kind=1)")), (std::vector<long>{0, 1}));
    const auto filter = LDAPProp(Constants::OBJECTCLASS) == "*Shape" && LDAPProp("kind") == 1;
    EXPECT_EQ(places(context.GetServiceReferences(none, filter)), (std::vector<long>{1, 0}));
}

TEST_F(ServiceTest, isChosenByAFilter) {
    add({{"eventTag", std::string("a")}});
    add({{"eventTag", std::string("b")}});
    EXPECT_EQ(places(context.GetServiceReferences<Shape>("(eventtag=b)")), std::vector<long>{1});
    EXPECT_TRUE(context.GetServiceReferences<Shape>("(eventTag=c)").empty());
    EXPECT_TRUE(LDAPFilter("(eventTag=a)").Match(context.GetServiceReference<Shape>()));
    EXPECT_THROW(context.GetServiceReferences<Shape>("(eventTag"), std::invalid_argument);
    EXPECT_TRUE(context.GetServiceReferences<Colour>("(eventTag").empty()) << "not read, as there are none";
}

TEST_F(ServiceTest, isFoundUnderEachOfItsInterfaces) {
    const auto service = std::make_shared<RedShape>();
    const auto registration = context.RegisterService<Shape, Colour>(service);
    const auto colour = context.GetService(context.GetServiceReference<Colour>());
    EXPECT_EQ(colour->colour(), "red");
    EXPECT_EQ(context.GetService(registration.GetReference())->shape(), "shape");
    EXPECT_EQ(context.GetServiceReference<Colour>(), registration.GetReference());
    const auto classes =
        any_cast<std::vector<std::string>>(registration.GetReference().GetProperty(Constants::OBJECTCLASS));
    EXPECT_EQ(classes.size(), 2U);
}

TEST_F(ServiceTest, isKnownByTheNameOfItsTypeOrADeclaredOne) {
    direct(context, {});
    EXPECT_TRUE(context.GetServiceReference("test_services::Director"));
    context.RegisterService<Named>(std::make_shared<Named>());
    EXPECT_EQ(context.GetServiceReference("a name of its own").GetInterfaceId(), "a name of its own");
}

TEST_F(ServiceTest, hasPropertiesInAnyCase) {
    auto registration = add({{"Colour", std::string("red")}});
    const auto reference = registration.GetReference();
    EXPECT_EQ(reference.GetProperty("cOLOUR").ToString(), "red");
    EXPECT_TRUE(reference.GetProperty("other").Empty());
    EXPECT_EQ(reference.GetProperty(Constants::SERVICE_SCOPE).ToString(), "singleton");
    registration.SetProperties(ServiceProperties{{"size", 3}});
    EXPECT_TRUE(reference.GetProperty("colour").Empty());
    EXPECT_EQ(std::ranges::count(reference.GetPropertyKeys(), "size"), 1);
    EXPECT_TRUE(reference.GetBundle() == running.framework);
}

TEST_F(ServiceTest, isRefused) {
    EXPECT_THROW(context.RegisterService<Shape>(std::shared_ptr<Shape>()), std::invalid_argument);
    EXPECT_THROW(add({{"key", 1}, {"KEY", 2}}), std::runtime_error);
    auto registration = add({{Constants::SERVICE_RANKING, std::string("high")}});
    EXPECT_TRUE(registration) << "only a change of the ranking is checked";
    EXPECT_THROW(registration.SetProperties(ServiceProperties{{Constants::SERVICE_RANKING, 1L}}),
                 std::invalid_argument);
    EXPECT_THROW(context.GetService(ServiceReference<Shape>()), std::invalid_argument);
}

TEST_F(ServiceTest, canBeWithdrawnOnce) {
    auto registration = add({{"key", 1}});
    const auto reference = registration.GetReference();
    registration.Unregister();
    EXPECT_FALSE(reference);
    EXPECT_TRUE(registration);
    EXPECT_EQ(any_cast<int>(reference.GetProperty("key")), 1);
    EXPECT_FALSE(context.GetServiceReference<Shape>());
    EXPECT_THROW(context.GetService(reference), std::invalid_argument);
    EXPECT_THROW(registration.Unregister(), std::logic_error);
    EXPECT_THROW(registration.GetReference(), std::logic_error);
    EXPECT_THROW(registration.SetProperties(ServiceProperties{}), std::logic_error);
    EXPECT_FALSE(ServiceRegistration<Shape>());
}

TEST_F(ServiceTest, staysAliveWhileItIsHeld) {
    bool isGone = false;
    auto registration = context.RegisterService<Witness>(std::make_shared<Witness>([&] { isGone = true; }));
    auto held = context.GetService(registration.GetReference());
    auto copy = held;
    registration.Unregister();
    held.reset();
    EXPECT_FALSE(isGone);
    running.framework.Stop();
    running.framework.WaitForStop(std::chrono::milliseconds::zero());
    EXPECT_FALSE(isGone);
    copy.reset();
    EXPECT_TRUE(isGone);
}

TEST_F(ServiceTest, goesAtOnceWhenNobodyHoldsIt) {
    bool isGone = false;
    auto registration = context.RegisterService<Witness>(std::make_shared<Witness>([&] { isGone = true; }));
    context.GetService(registration.GetReference());
    EXPECT_FALSE(isGone);
    registration.Unregister();
    EXPECT_TRUE(isGone);
}

TEST_F(ServiceTest, isInUseUntilTheLastCopyGoes) {
    const auto reference = add().GetReference();
    EXPECT_EQ(running.framework.GetRegisteredServices().size(), 1U);
    auto held = context.GetService(reference);
    auto again = context.GetService(reference);
    EXPECT_EQ(reference.GetUsingBundles(), std::vector<Bundle>{running.framework});
    held.reset();
    EXPECT_EQ(running.framework.GetServicesInUse().size(), 1U);
    again.reset();
    EXPECT_TRUE(reference.GetUsingBundles().empty());
    EXPECT_TRUE(running.framework.GetServicesInUse().empty());
}

// A lock held while foreign code runs would let each of these wait for ever.
TEST_F(ServiceTest, mayUseTheFrameworkWhileItIsReleased) {
    int lookUps = 0;
    const auto lookUp = [&] {
        add();
        lookUps += static_cast<int>(!context.GetServiceReferences<Shape>("(objectclass=*)").empty());
    };
    auto registration = context.RegisterService<Witness>(std::make_shared<Witness>(lookUp),
                                                         {{"key", std::make_shared<Witness>(lookUp)}});
    registration.SetProperties(ServiceProperties{});
    EXPECT_EQ(lookUps, 1);
    registration.Unregister();
    EXPECT_EQ(lookUps, 2);
}

}  // namespace
