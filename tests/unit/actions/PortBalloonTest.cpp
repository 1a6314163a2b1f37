// What the balloon of a port says, and that the child's command line never grows beyond what it reads.
#include "actions/PortBalloon.h"

#include "config/CSettings.h"
#include "inventory/names/CDosDeviceNames.h"
#include "inventory/ports/CComPorts.h"
#include "support/texts/StringTools.h"
#include "tests/unit/Log.h"

#include <gtest/gtest.h>

using namespace logtest;

namespace {
// A device whose ports came a minute ago, all of them working.
struct Device {
    explicit Device(int count) {
        Sleep(60000);
        g_pComPorts = new CComPorts;
        g_pSettings = new CSettings;
        CopyText(g_pSettings->TextRemoved, "Removed");
        CopyText(szExePath, "C:\\Quillmarch\\Quillmarch.exe");
        for (int i = 0; i < count; ++i) {
            Add(i, count);
        }
        StartLog();
    }
    void Add(int i, int count) {
        auto* port = new CComPort;
        port->Index = i;
        port->IsUsed = port->IsPresent = port->PortChangeDone = 1;
        port->SameParentCount = count;
        for (int k = 0; k < count; ++k) {
            port->Same[k] = (i + k) % count;
        }
        FormatText(port->szRegPortName, "COM%i", 7 + i);
        FormatText(port->FriendlyName, "Quad Port %c (COM%i)", 'A' + i, 7 + i);
        FormatText(port->FriendlyNameNoCom, "Quad Port %c", 'A' + i);
        FormatText(port->DevPath, "\\\\?\\quad%i", i);
        port->UsbPortChain = static_cast<ULONGLONG>(i) + 1; // their order, not that of their names
        port->BusTypeName = BusTypeNames[BusUsb];
        port->ArrivalTicker = port->RemovalTicker = GetTickCount();
        DefineDosDeviceA(DDD_RAW_TARGET_PATH, port->DevPath + 4, "\\Device\\Quad");
        g_pComPorts->Ports[i] = port;
        g_pComPorts->PortCount = i + 1;
    }
    CComPort& operator[](int i) { return *g_pComPorts->Ports[i]; }
    void Leave() {
        Sleep(5000);
        for (int i = 0; i < g_pComPorts->PortCount; ++i) {
            (*this)[i].IsPresent = 0;
            (*this)[i].RemovalTicker = GetTickCount();
        }
    }
    bool Compose(DWORD id, int i = 0) { return ComposePortBalloon(id, &(*this)[i], &balloon); }
    PortBalloon balloon = {};
};
} // namespace

TEST(PortBalloon, OnePortHasItsNameAsTitle) {
    Device device(1);
    ASSERT_TRUE(device.Compose(ArrivalBalloonTimerId));
    EXPECT_STREQ(device.balloon.Parameters,
                 "-balloon -bt=0 -time=6500 -title=\"Quad Port A\" -text=\"COM7\" -icon=102");
    device[0].szRegPortName[0] = 0;
    device.Leave();
    ASSERT_TRUE(device.Compose(RemovalBalloonTimerId));
    EXPECT_STREQ(device.balloon.Parameters,
                 "-balloon -bt=0 -time=3500 -title=\"Quad Port A\" -text=\"Removed: ???\" -icon=103");
}

TEST(PortBalloon, ADeviceIsNamedOnceAndItsPortsAreListed) {
    Device device(4);
    ASSERT_TRUE(device.Compose(ArrivalBalloonTimerId, 3));
    EXPECT_STREQ(device.balloon.Title, "Quad Port ");
    EXPECT_STREQ(device.balloon.Text, "COM7, COM8, COM9, COM10");
    EXPECT_EQ(device.balloon.ShowTime, 8000);
    device.Leave();
    ASSERT_TRUE(device.Compose(RemovalBalloonTimerId, 1));
    EXPECT_STREQ(device.balloon.Text, "Removed: COM7, COM8, COM9, COM10");
    Sleep(5000);
    ASSERT_TRUE(device.Compose(RemovalBalloonTimerId, 1));
    EXPECT_STREQ(device.balloon.Text, "Removed: ");
    EXPECT_STREQ(device.balloon.Title, "USB Device");
}

TEST(PortBalloon, OnlyPortsThatCameTogetherAndAreDoneAreListed) {
    Device device(4);
    device[0].ArrivalTicker -= 30000;
    device[1].PortChangeDone = 0;
    device[2].IsPresent = 0;
    ASSERT_TRUE(device.Compose(ArrivalBalloonTimerId, 3));
    EXPECT_STREQ(device.balloon.Text, "COM10");
    EXPECT_STREQ(device.balloon.Title, "Quad Port D");
    device[0].ArrivalTicker += 1;
    ASSERT_TRUE(device.Compose(ArrivalBalloonTimerId, 3));
    EXPECT_STREQ(device.balloon.Text, "COM7, COM10");
    DefineDosDeviceA(DDD_REMOVE_DEFINITION, "quad0", nullptr);
    DefineDosDeviceA(DDD_REMOVE_DEFINITION, "quad3", nullptr);
    EXPECT_FALSE(device.Compose(ArrivalBalloonTimerId, 3));
    EXPECT_TRUE(Logged("qdd err=")) << "the names have gone";
    EXPECT_TRUE(Logged("oops, no text -> no balloon"));
}

TEST(PortBalloon, NoBalloonForAPortThatIsNotDoneOrLeftAtOnce) {
    Device device(1);
    device[0].PortChangeDone = 0;
    EXPECT_FALSE(device.Compose(ArrivalBalloonTimerId));
    EXPECT_TRUE(Logged("P->PortChangeDone == 0 -> abort"));
    device[0].SameParentCount = 0;
    EXPECT_FALSE(device.Compose(ArrivalBalloonTimerId));
    EXPECT_TRUE(Logged("P->SameParentCount == 0 -> abort"));
    device[0].SameParentCount = device[0].PortChangeDone = 1;
    device[0].IsPresent = 0;
    Sleep(4999);
    EXPECT_FALSE(device.Compose(RemovalBalloonTimerId));
    EXPECT_TRUE(Logged("device is gone even arrived 4999 ms before -> no balloon"));
    Sleep(1);
    EXPECT_TRUE(device.Compose(RemovalBalloonTimerId));
}

TEST(PortBalloon, WhatWouldGrowTooLongIsCutTheListFirst) {
    Device device(MaxSame);
    for (int i = 0; i < MaxSame; ++i) {
        FormatText(device[i].szRegPortName, "COM%i", 4000 + i);
        FormatText(device[i].FriendlyNameNoCom, "%0100i-%i", 0, i);
    }
    const std::string folder = "C:\\a b\\" + std::string(230, 'x');
    for (const std::string& exe : {std::string("C:\\q.exe"), folder + "\\Quillmarch.exe"}) {
        CopyText(szExePath, exe.c_str());
        ASSERT_TRUE(device.Compose(ArrivalBalloonTimerId));
        const std::string commandLine = (exe[3] == 'a' ? "\"" + exe + "\"" : exe) + " " + device.balloon.Parameters;
        EXPECT_LE(commandLine.size(), 511u);
        const std::string text = device.balloon.Text;
        EXPECT_EQ(text.rfind("COM4000", 0), 0u);
        EXPECT_EQ((text.size() + 2) % 9, 0u) << "whole names only: " << text;
        EXPECT_NE(commandLine.find("\" -icon=102"), std::string::npos);
    }
    EXPECT_LT(std::string(device.balloon.Text).size(), 200u) << "the long program name took room";
}

TEST(PortBalloon, NoNameOfADeviceGetsOutOfItsQuotes) {
    Device device(1);
    CopyText(device[0].FriendlyNameNoCom, "7\" cable\r\n-text=\"x");
    CopyText(g_pSettings->TextRemoved, "Gone \"now\"");
    device.Leave();
    ASSERT_TRUE(device.Compose(RemovalBalloonTimerId));
    EXPECT_STREQ(device.balloon.Title, "7' cable  -text='x");
    EXPECT_STREQ(device.balloon.Text, "Gone 'now': COM7");
}

TEST(GetCommonPart, IsTheSharedBeginningOrTheFirstName) {
    static constexpr struct {
        const char* names[3];
        DWORD count;
        const char* common;
    } Rows[] = {
        {{}, 0, ""},
        {{"USB Serial Port (COM3)"}, 1, "USB Serial Port (COM3)"},
        {{"Quad A", "Quad B", "Quad C"}, 3, "Quad "},
        {{"Quad", "Quad B"}, 2, "Quad"},
        {{"QuaD", "Quad"}, 2, "QuaD"}, // three in common are too few
        {{"abc (COM3)", "xyz"}, 2, "abc"},
        {{"One", "Two"}, 2, "One"},
    };
    for (const auto& row : Rows) {
        char common[128];
        GetCommonPart(row.names, row.count, common, sizeof(common));
        EXPECT_STREQ(common, row.common);
    }
}
