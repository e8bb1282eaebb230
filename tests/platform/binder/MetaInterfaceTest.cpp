#include <binder/IInterface.h>
#include <binder/Parcel.h>
#include <gtest/gtest.h>

#include "platform/binder/RelayBinder.h"

namespace OrvPlayer {

class ICOrvPlayerClient : public android::IInterface {
public:
    DECLARE_META_INTERFACE(COrvPlayerClient)

    enum { ON_ERROR = android::IBinder::FIRST_CALL_TRANSACTION };

    virtual void onError(int code) = 0;
};

class ICOrvPlayer : public android::IInterface {
public:
    DECLARE_META_INTERFACE(COrvPlayer)
};

namespace {

class BpCOrvPlayerClient : public android::BpInterface<ICOrvPlayerClient> {
public:
    explicit BpCOrvPlayerClient(const android::sp<android::IBinder>& remote)
        : BpInterface(remote) {}

    void onError(int code) override {
        android::Parcel data;
        data.writeInterfaceToken(getInterfaceDescriptor());
        data.writeInt32(code);
        remote()->transact(ON_ERROR, data, nullptr);
    }
};

class Client : public android::BnInterface<ICOrvPlayerClient> {
public:
    void onError(int code) override { mLastError = code; }

    int mLastError = 0;

protected:
    android::status_t onTransact(uint32_t code, const android::Parcel& data, android::Parcel* reply,
                                 uint32_t flags) override {
        if (code != ON_ERROR) {
            return BBinder::onTransact(code, data, reply, flags);
        }
        if (!data.checkInterface(this)) {
            return android::PERMISSION_DENIED;
        }
        onError(data.readInt32());
        return android::OK;
    }
};

class Service : public android::BnInterface<ICOrvPlayer> {};

}  // namespace

IMPLEMENT_META_INTERFACE(COrvPlayerClient, "OrvPlayerClient")
IMPLEMENT_META_INTERFACE_WITHOUT_PROXY(COrvPlayer, "OrvPlayer")

namespace {

using android::IBinder;
using android::IInterface;
using android::sp;
using android::String16;
using orvtest::RelayBinder;

TEST(MetaInterface, FindsTheLocalObjectElseMakesAProxy) {
    const sp<Client> client = new Client;
    const sp<IBinder> binder = IInterface::asBinder(client);
    EXPECT_EQ(android::interface_cast<ICOrvPlayerClient>(binder), client);
    EXPECT_EQ(android::interface_cast<ICOrvPlayerClient>(nullptr), nullptr);
    EXPECT_EQ(IInterface::asBinder(sp<IInterface>()), nullptr);

    const sp<IBinder> away = new RelayBinder(binder);
    const sp<ICOrvPlayerClient> proxy = ICOrvPlayerClient::asInterface(away);
    ASSERT_NE(proxy, nullptr);
    EXPECT_EQ(IInterface::asBinder(proxy), away);
    proxy->onError(0x21002);
    EXPECT_EQ(client->mLastError, 0x21002);
    EXPECT_EQ(binder->getInterfaceDescriptor(), String16("OrvPlayerClient"));
    EXPECT_EQ(proxy->getInterfaceDescriptor(), String16("OrvPlayerClient"));
}

// A local object of another interface gets a proxy before it, and its token check answers.
TEST(MetaInterface, AnotherInterfaceIsNotMistaken) {
    const sp<IBinder> service = new Service;
    EXPECT_NE(ICOrvPlayer::asInterface(service), nullptr);
    EXPECT_EQ(ICOrvPlayer::asInterface(new Client), nullptr);
    EXPECT_EQ(ICOrvPlayer::asInterface(new RelayBinder(service)), nullptr);
    EXPECT_EQ(IInterface::asBinder(ICOrvPlayerClient::asInterface(service)), service);

    android::Parcel data;
    data.writeInterfaceToken(String16("OrvPlayer"));
    const sp<IBinder> client = new Client;
    EXPECT_EQ(client->transact(ICOrvPlayerClient::ON_ERROR, data, nullptr),
              android::PERMISSION_DENIED);
}

TEST(MetaInterface, KeepsTheFirstDefault) {
    EXPECT_EQ(ICOrvPlayerClient::getDefaultImpl(), nullptr);
    EXPECT_FALSE(ICOrvPlayerClient::setDefaultImpl(nullptr));
    auto impl = std::make_unique<Client>();
    const Client* const first = impl.get();
    EXPECT_TRUE(ICOrvPlayerClient::setDefaultImpl(std::move(impl)));
    EXPECT_FALSE(ICOrvPlayerClient::setDefaultImpl(std::make_unique<Client>()));
    EXPECT_EQ(ICOrvPlayerClient::getDefaultImpl().get(), first);
}

}  // namespace
}  // namespace OrvPlayer
