// What the tool role relies on from the service control manager. The account of the test is an administrator's.
#include "tests/contract/Contract.h"

constexpr char Name[] = "QuillmarchContract";

namespace {
// A service that is registered and stopped.
class ServiceManager : public testing::Test {
protected:
    void SetUp() override {
        m_manager = OpenSCManagerA(nullptr, nullptr, SC_MANAGER_ALL_ACCESS);
        ASSERT_NE(m_manager, nullptr) << GetLastError();
        m_service = Create(Name, Name);
        ASSERT_NE(m_service, nullptr) << GetLastError();
    }
    void TearDown() override {
        if (m_service) {
            EXPECT_TRUE(DeleteService(m_service));
            CloseServiceHandle(m_service);
        }
        CloseServiceHandle(m_manager);
    }
    SC_HANDLE Create(const char* name, const char* shown, DWORD start = SERVICE_AUTO_START) {
        return CreateServiceA(m_manager, name, shown, SERVICE_ALL_ACCESS, SERVICE_WIN32_OWN_PROCESS, start,
                              SERVICE_ERROR_NORMAL, "C:\\Nowhere\\QuillmarchContract.exe", nullptr, nullptr, nullptr,
                              nullptr, nullptr);
    }
    SC_HANDLE m_manager = nullptr, m_service = nullptr;
};
} // namespace

TEST_F(ServiceManager, AStoppedServiceTakesNoStopAndBothItsNamesAreTaken) {
    EXPECT_ERROR(ERROR_SERVICE_EXISTS, Create(Name, Name));
    EXPECT_ERROR(1078, Create("QuillmarchSecond", Name));
    EXPECT_ERROR(ERROR_INVALID_PARAMETER, Create("QuillmarchSecond", "Second", 77));
    SERVICE_STATUS status = {};
    EXPECT_TRUE(QueryServiceStatus(m_service, &status));
    EXPECT_EQ(status.dwCurrentState, DWORD{SERVICE_STOPPED});
    EXPECT_EQ(status.dwCheckPoint, 0u);
    EXPECT_ERROR(ERROR_SERVICE_NOT_ACTIVE, ControlService(m_service, SERVICE_CONTROL_STOP, &status));
}

TEST_F(ServiceManager, ADeletedServiceIsGoneOnceNobodyHoldsIt) {
    EXPECT_TRUE(DeleteService(m_service));
    EXPECT_ERROR(ERROR_SERVICE_MARKED_FOR_DELETE, DeleteService(m_service));
    EXPECT_TRUE(CloseServiceHandle(m_service));
    m_service = nullptr;
    EXPECT_ERROR(ERROR_SERVICE_DOES_NOT_EXIST, OpenServiceA(m_manager, Name, SERVICE_QUERY_CONFIG));
}

TEST_F(ServiceManager, AHandleGivesOnlyTheRightsThatItWasOpenedWith) {
    SC_HANDLE reader = OpenServiceA(m_manager, "QUILLMARCHCONTRACT", SERVICE_QUERY_CONFIG);
    ASSERT_NE(reader, nullptr) << "names are blind to case";
    SERVICE_STATUS status = {};
    char text[] = "text";
    SERVICE_DESCRIPTIONA description = {text};
    EXPECT_FALSE(QueryServiceStatus(reader, &status) || ControlService(reader, SERVICE_CONTROL_STOP, &status) ||
                 ChangeServiceConfig2A(reader, SERVICE_CONFIG_DESCRIPTION, &description) ||
                 StartServiceA(reader, 0, nullptr));
    EXPECT_ERROR(ERROR_ACCESS_DENIED, DeleteService(reader));
    CloseServiceHandle(reader);
    EXPECT_TRUE(ChangeServiceConfig2A(m_service, SERVICE_CONFIG_DESCRIPTION, &description));
}

TEST_F(ServiceManager, AProcessThatItDidNotStartHasNoDispatcher) {
    char name[] = "QuillmarchContract";
    const SERVICE_TABLE_ENTRYA table[] = {{name, [](DWORD, LPSTR*) {}}, {nullptr, nullptr}};
    EXPECT_ERROR(ERROR_FAILED_SERVICE_CONTROLLER_CONNECT, StartServiceCtrlDispatcherA(table));
}
