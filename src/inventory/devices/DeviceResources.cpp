#include "inventory/devices/DeviceResources.h"

// A driver's list has a handful of descriptors of a few dozen bytes; anything beyond comes from a broken list.
constexpr int MaxDescriptors = 256;
constexpr ULONG MaxDescriptorBytes = 1024;

namespace {
union DescriptorData {
    IO_DES io;
    IRQ_DES irq;
    BYTE bytes[MaxDescriptorBytes];
};
} // namespace

static bool OpenConfiguration(DWORD devInst, LOG_CONF* configuration) {
    return CM_Get_First_Log_Conf(configuration, devInst, ALLOC_LOG_CONF) == CR_SUCCESS ||
           CM_Get_First_Log_Conf(configuration, devInst, BOOT_LOG_CONF) == CR_SUCCESS;
}

// The first descriptor of this type in the device's configuration; the caller frees it.
static bool OpenFirstDescriptor(DWORD devInst, RESOURCEID type, RES_DES* descriptor) {
    LOG_CONF configuration = 0;
    if (!OpenConfiguration(devInst, &configuration)) {
        return false;
    }
    const CONFIGRET result = CM_Get_Next_Res_Des(descriptor, configuration, type, nullptr, 0);
    CM_Free_Log_Conf_Handle(configuration);
    return result == CR_SUCCESS;
}

static bool ReadDescriptor(RES_DES descriptor, ULONG neededBytes, DescriptorData* data) {
    ULONG sizeBytes = 0;
    if (CM_Get_Res_Des_Data_Size(&sizeBytes, descriptor, 0) != CR_SUCCESS || sizeBytes < neededBytes ||
        sizeBytes > sizeof(data->bytes)) {
        return false;
    }
    return CM_Get_Res_Des_Data(descriptor, data->bytes, sizeBytes, 0) == CR_SUCCESS;
}

// Takes the value of every descriptor of the type, so the last one counts. False if there is none.
static bool ReadResource(DWORD devInst, RESOURCEID type, DWORD* value) {
    RES_DES descriptor = 0;
    if (!OpenFirstDescriptor(devInst, type, &descriptor)) {
        return false;
    }
    const bool isIo = type == ResType_IO;
    for (int count = 0; count < MaxDescriptors; ++count) {
        DescriptorData data = {};
        if (ReadDescriptor(descriptor, isIo ? sizeof(IO_DES) : sizeof(IRQ_DES), &data)) {
            *value = isIo ? static_cast<DWORD>(data.io.IOD_Alloc_Base) : static_cast<DWORD>(data.irq.IRQD_Alloc_Num);
        }
        RES_DES next = 0;
        const CONFIGRET result = CM_Get_Next_Res_Des(&next, descriptor, type, nullptr, 0);
        CM_Free_Res_Des_Handle(descriptor);
        if (result != CR_SUCCESS) {
            return true;
        }
        descriptor = next;
    }
    CM_Free_Res_Des_Handle(descriptor);
    return true;
}

bool GetDeviceResources(DWORD devInst, DWORD* irq, DWORD* ioPort) {
    *irq = 0;
    *ioPort = 0;
    if (!ReadResource(devInst, ResType_IO, ioPort) || !ReadResource(devInst, ResType_IRQ, irq)) {
        return false;
    }
    return *ioPort != 0;
}
