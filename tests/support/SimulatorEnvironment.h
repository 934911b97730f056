#pragma once
// One simulated NetWorker installation for a whole test program (seeded for client "cli" of
// server "srv"): register it once with ::testing::AddGlobalTestEnvironment(new
// SimulatorEnvironment) and reach it from the tests with SimulatorEnvironment::Get().
// Windows only.

#include <gtest/gtest.h>

#include <memory>

#include "SimulatorFixture.h"

class SimulatorEnvironment : public ::testing::Environment {
public:
    void SetUp() override {
        Slot() = std::make_unique<SimulatorFixture>();
        ASSERT_TRUE(Slot()->Ready()) << Slot()->Failure();
    }
    void TearDown() override { Slot().reset(); }

    static const SimulatorFixture& Get() { return *Slot(); }

private:
    static std::unique_ptr<SimulatorFixture>& Slot() {
        static std::unique_ptr<SimulatorFixture> simulator;
        return simulator;
    }
};
