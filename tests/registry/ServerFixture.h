#pragma once

#include "registry/CorvantaInstance.h"

#include "TestSupport.h"

#include <gtest/gtest.h>

// An instance directory with the stand-in server as CORVANTA_BINARY. The
// stand-in listens on no port here, so tests can run side by side.
class ServerFixture : public ::testing::Test {
protected:
    void SetUp() override { testing_support::makeInstance(dir); }

    // Refreshes until the status is reached or ten seconds have passed.
    bool refreshUntil(CorvantaInstance &instance, qint32 status) {
        return testing_support::waitFor([&] {
            instance.refresh();
            return instance.serverStatus() == status;
        });
    }

    testing_support::TempDir tmp;
    QString dir = tmp / "inst";
    QString lock = dir + "/corvanta.lck";
    testing_support::ScopedEnv port{"CORVANTA_STANDIN_PORT", QStringLiteral("0")};
    testing_support::ScopedEnv binary{"CORVANTA_BINARY", testing_support::standinPath()};
    testing_support::LogCapture log;
    // Declared last: kills a leftover server before the directory goes.
    testing_support::ProcessGuard server;
};
