// What the tool role relies on from the service control manager. The account of the test is an administrator's.
#include "tests/contract/Contract.h"

namespace {

using contract::ErrorOf;

constexpr char Name[] = "QuillmarchContract";

class ServiceManager : public testing::Test {
protected:
    void SetUp() override {
        m_manager = OpenSCManagerA(nullptr, nullptr, SC_MANAGER_ALL_ACCESS);
        ASSERT_NE(m_manager, nullptr) << GetLastError();
    }
    void TearDown() override { CloseServiceHandle(m_manager); }

    SC_HANDLE Create() {
        return CreateServiceA(m_manager, Name, Name, SERVICE_ALL_ACCESS, SERVICE_WIN32_OWN_PROCESS, SERVICE_AUTO_START,
                              SERVICE_ERROR_NORMAL, "C:\\Nowhere\\QuillmarchContract.exe", nullptr, nullptr, nullptr,
                              nullptr, nullptr);
    }

    SC_HANDLE m_manager = nullptr;
};

TEST_F(ServiceManager, AServiceThatIsNotThereCannotBeOpened) {
    EXPECT_EQ(ErrorOf([&] { return OpenServiceA(m_manager, "QuillmarchNever", SERVICE_QUERY_CONFIG); }),
              DWORD{ERROR_SERVICE_DOES_NOT_EXIST});
}

TEST_F(ServiceManager, AStoppedServiceTakesNoStopAndItsNameIsTaken) {
    SC_HANDLE service = Create();
    ASSERT_NE(service, nullptr) << GetLastError();
    EXPECT_EQ(ErrorOf([&] { return Create(); }), DWORD{ERROR_SERVICE_EXISTS});
    SERVICE_STATUS status = {};
    EXPECT_TRUE(QueryServiceStatus(service, &status));
    EXPECT_EQ(status.dwCurrentState, DWORD{SERVICE_STOPPED});
    EXPECT_EQ(status.dwCheckPoint, 0u);
    EXPECT_EQ(ErrorOf([&] { return ControlService(service, SERVICE_CONTROL_STOP, &status); }),
              DWORD{ERROR_SERVICE_NOT_ACTIVE});
    EXPECT_TRUE(DeleteService(service));
    CloseServiceHandle(service);
}

TEST_F(ServiceManager, NoOtherServiceIsShownByItsName) {
    SC_HANDLE service = Create();
    ASSERT_NE(service, nullptr) << GetLastError();
    const auto second = [&](const char* name, const char* shown, DWORD start) {
        return ErrorOf([&] {
            return CreateServiceA(m_manager, name, shown, SERVICE_ALL_ACCESS, SERVICE_WIN32_OWN_PROCESS, start,
                                  SERVICE_ERROR_NORMAL, "C:\\Nowhere\\Second.exe", nullptr, nullptr, nullptr, nullptr,
                                  nullptr);
        });
    };
    EXPECT_EQ(second("QuillmarchSecond", Name, SERVICE_AUTO_START), DWORD{1078});
    EXPECT_EQ(second("QuillmarchSecond", "Second", 77), DWORD{ERROR_INVALID_PARAMETER});
    EXPECT_TRUE(DeleteService(service));
    CloseServiceHandle(service);
}

TEST_F(ServiceManager, ADeletedServiceIsGoneOnceNobodyHoldsIt) {
    SC_HANDLE service = Create();
    ASSERT_NE(service, nullptr) << GetLastError();
    EXPECT_TRUE(DeleteService(service));
    EXPECT_EQ(ErrorOf([&] { return DeleteService(service); }), DWORD{ERROR_SERVICE_MARKED_FOR_DELETE});
    EXPECT_TRUE(CloseServiceHandle(service));
    EXPECT_EQ(ErrorOf([&] { return OpenServiceA(m_manager, Name, SERVICE_QUERY_CONFIG); }),
              DWORD{ERROR_SERVICE_DOES_NOT_EXIST});
}

TEST_F(ServiceManager, AHandleGivesOnlyTheRightsThatItWasOpenedWith) {
    SC_HANDLE service = Create();
    ASSERT_NE(service, nullptr) << GetLastError();
    SC_HANDLE reader = OpenServiceA(m_manager, "QUILLMARCHCONTRACT", SERVICE_QUERY_CONFIG);
    ASSERT_NE(reader, nullptr) << "names are blind to case";
    SERVICE_STATUS status = {};
    char text[] = "text";
    SERVICE_DESCRIPTIONA description = {text};
    const BOOL refused[] = {QueryServiceStatus(reader, &status), ControlService(reader, SERVICE_CONTROL_STOP, &status),
                            ChangeServiceConfig2A(reader, SERVICE_CONFIG_DESCRIPTION, &description),
                            StartServiceA(reader, 0, nullptr)};
    for (const BOOL result : refused)
        EXPECT_FALSE(result);
    EXPECT_EQ(ErrorOf([&] { return DeleteService(reader); }), DWORD{ERROR_ACCESS_DENIED});
    CloseServiceHandle(reader);
    EXPECT_TRUE(ChangeServiceConfig2A(service, SERVICE_CONFIG_DESCRIPTION, &description));
    EXPECT_TRUE(DeleteService(service));
    CloseServiceHandle(service);
}

TEST_F(ServiceManager, AProcessThatItDidNotStartHasNoDispatcher) {
    char name[] = "QuillmarchContract";
    const SERVICE_TABLE_ENTRYA table[] = {{name, [](DWORD, LPSTR*) {}}, {nullptr, nullptr}};
    EXPECT_EQ(ErrorOf([&] { return StartServiceCtrlDispatcherA(table); }),
              DWORD{ERROR_FAILED_SERVICE_CONTROLLER_CONNECT});
}

} // namespace
