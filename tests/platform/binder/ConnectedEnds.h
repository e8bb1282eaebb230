#pragma once

#include <gtest/gtest.h>
#include <sys/socket.h>

#include <future>
#include <memory>
#include <string>

#include "binder/BinderConnection.h"
#include "platform/binder/PrivateBus.h"

namespace orvtest {

// A part of fixtures: both ends of a connection between a service and an application, in one
// process. *mError says why one is missing.
class ConnectedEnds {
protected:
    using BinderConnection = orvhost::BinderConnection;

    void connectOverSocket() {
        int ends[2];
        ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends), 0);
        auto service = std::async(std::launch::async, [&] {
            std::string error;
            return BinderConnection::overSocket(ends[0], BinderConnection::SERVICE, &error);
        });
        mApplication =
            BinderConnection::overSocket(ends[1], BinderConnection::APPLICATION, &mError);
        mService = service.get();
    }

    // Over a bus of their own; the service has this name there.
    void connectToBus(const android::String16& name) {
        mBus = std::make_unique<PrivateBus>();
        ASSERT_NE(mBus->address(), "") << "dbus-daemon is needed";
        const auto kind = BinderConnection::SESSION_BUS;
        mService = BinderConnection::toBus(kind, mBus->address(), &mError);
        ASSERT_NE(mService, nullptr) << mError;
        ASSERT_TRUE(mService->claimName(name, &mError)) << mError;
        mApplication = BinderConnection::toBus(kind, mBus->address(), &mError);
    }

    std::string mError;
    std::unique_ptr<PrivateBus> mBus;
    android::sp<BinderConnection> mService;
    android::sp<BinderConnection> mApplication;
};

}  // namespace orvtest
