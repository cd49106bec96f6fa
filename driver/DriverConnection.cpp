#include "driver/DriverConnection.h"

#include <cerrno>

#include "driver/DriverOptions.h"
#include "shared/System/svLog.h"

namespace vexil {

void DriverConnection::Open() {
    driverSocket = control.Socket(kPfSystem, kSockDgram, kSysProtoControl);
    if (driverSocket == -1) {
        LogPrintf("Cannot get socket; error %d.\n", errno);
        return;
    }

    auto info = MakeCtlInfo(kControlName);
    if (control.Ioctl(driverSocket, kCtlIocGInfo, info.data()) != 0) {
        LogPrintf("Cannot find service id; error %d.\n", errno);
        return;
    }

    const auto address = MakeSockaddrCtl(CtlInfoId(info), kControlUnit);
    const int result = control.Connect(driverSocket, address.data(), kSockaddrCtlSize);
    if (result != 0) {
        // The number is the call's result, not errno; whoever reads the log relies on it.
        LogPrintf("Cannot connect to service; error %d.\n", result);
        return;
    }
    driverConnected = true;
}

void DriverConnection::Close() {
    driverConnected = false;
    if (driverSocket != -1) {
        control.Close(
            driverSocket);  // nothing is left to do if it fails: the descriptor is given up either way
    }
    driverSocket = -1;
}

int DriverConnection::SendCommand(int option, const void* payload, std::uint32_t length) {
    return control.SetOption(driverSocket, kSysProtoControl, option, payload, length);
}

int DriverConnection::ReadHostInfos(void* buffer, std::uint32_t* length) {
    return control.GetOption(driverSocket, kSysProtoControl, kOptionReadHostInfos, buffer, length);
}

void DriverConnection::SendQuantization(std::uint32_t sendGranularity) {
    if (!driverConnected) {
        return;
    }
    const auto payload = MakeUint32(sendGranularity);
    if (SendCommand(kOptionSendGranularity, payload.data(), payload.size()) != 0) {
        LogPrintf("Set_TstSndGrn error %d.\n", errno);
    }
}

}  // namespace vexil
