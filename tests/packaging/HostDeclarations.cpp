// SPDX-License-Identifier: MIT
/* A host application's own declarations of the library's interface, written
 * from the documented signatures and independent of include/: linking this
 * against the library proves that every mangled name matches. Nothing here
 * runs; taking each member's address is enough to need its symbol. */
#include <cstdarg>
#include <new>
#include <cstdio>
#include <string>
#include <vector>

class Client {
public:
    Client();
    Client(char* name);
    ~Client();
    int ValidClient();
    long GetClientSocket();
    int GetClientStatus();
    void SetClientStatus(int status);
    int Connect(char* connectText, const char* requestedLogFile, const char* serverDirectory);
    int Disconnect();
    int Send(int command, ...);
    int Read(char*& text);
    char* Read();
    int Read(int& value);
    int Read(std::vector<std::string>& fields);
    int JTAGInterfaceFunc(int& socket, va_list args);
    int sendShiftargs(int socket, va_list args);
    int sendJTAGShiftargs(int socket, va_list args);
    int GetTDO(unsigned char*& dest, int bitCount);
    int GetTDO(char* dest, int bitCount);
    int sendPumpData(int& socket, va_list args);
    int sendSSPIShiftargs(int& socket, int withWrite, int withReadBack, va_list args);
    int sendI2CShiftargs(int& socket, int withWrite, int withReadBack, va_list args);
    int sendSharedApps(int& socket, va_list args);
    void PrintMessage(std::string id, ...);
    int Set_Log_File(const char* name);
    int Get_Log_file();
    int Set_Debug_On();
    int Set_Debug_Off();
};

class ClientUtils {
public:
    ClientUtils();
    ClientUtils(int debugFlag, FILE* logFile, std::string clientName, std::string logFileName);
    ~ClientUtils();
    int sendstrargs(int socket, int count, va_list args);
    int sendintargs(int socket, int count, va_list args);
    int sendcharstarargs(int socket, int count, va_list args);
    int sendSetHeaderTrailerargs(int socket, va_list args);
    int DetectServer();
    int DetermineMutex(int& socket, int& lockFlag);
    void PrintMessage(std::string id, ...);
};

class LByteBuffer {
public:
    LByteBuffer();
    LByteBuffer(const unsigned char* data, int length);
    explicit LByteBuffer(const std::vector<unsigned char>& bytes);
    int GetTotalSize();
    unsigned char ReadData(int index);
};

int SendJTAGShiftData(int& socket, int flags, int bitCount, int blockCount, LByteBuffer firstBuffer,
                      LByteBuffer secondBuffer, LByteBuffer thirdBuffer);

/* Where each member's address goes, so that the compiler must keep it. */
const void* volatile sink;

template <typename T>
void use(T pointer) {
    static T kept;
    kept = pointer;
    sink = &kept;
}

int main(int argc, char**) {
    if (argc > 0) return 0;  // linked, never run
    alignas(16) static unsigned char storage[4096];
    Client* client = new (storage) Client();
    Client* named = new (storage) Client(nullptr);
    client->~Client();
    named->~Client();
    use(&Client::ValidClient);
    use(&Client::GetClientSocket);
    use(&Client::GetClientStatus);
    use(&Client::SetClientStatus);
    use(&Client::Connect);
    use(&Client::Disconnect);
    use(&Client::Send);
    use(static_cast<int (Client::*)(char*&)>(&Client::Read));
    use(static_cast<char* (Client::*)()>(&Client::Read));
    use(static_cast<int (Client::*)(int&)>(&Client::Read));
    use(static_cast<int (Client::*)(std::vector<std::string>&)>(&Client::Read));
    use(&Client::JTAGInterfaceFunc);
    use(&Client::sendShiftargs);
    use(&Client::sendJTAGShiftargs);
    use(static_cast<int (Client::*)(unsigned char*&, int)>(&Client::GetTDO));
    use(static_cast<int (Client::*)(char*, int)>(&Client::GetTDO));
    use(&Client::sendPumpData);
    use(&Client::sendSSPIShiftargs);
    use(&Client::sendI2CShiftargs);
    use(&Client::sendSharedApps);
    use(&Client::PrintMessage);
    use(&Client::Set_Log_File);
    use(&Client::Get_Log_file);
    use(&Client::Set_Debug_On);
    use(&Client::Set_Debug_Off);
    ClientUtils* utils = new (storage) ClientUtils();
    utils->~ClientUtils();
    ClientUtils* named_utils = new (storage) ClientUtils(0, nullptr, std::string(), std::string());
    named_utils->~ClientUtils();
    use(&ClientUtils::sendstrargs);
    use(&ClientUtils::sendintargs);
    use(&ClientUtils::sendcharstarargs);
    use(&ClientUtils::sendSetHeaderTrailerargs);
    use(&ClientUtils::DetectServer);
    use(&ClientUtils::DetermineMutex);
    use(&ClientUtils::PrintMessage);
    LByteBuffer* empty = new (storage) LByteBuffer();
    LByteBuffer* fromBytes = new (storage) LByteBuffer(nullptr, 0);
    LByteBuffer* fromVector = new (storage) LByteBuffer(std::vector<unsigned char>());
    use(&LByteBuffer::GetTotalSize);
    use(&LByteBuffer::ReadData);
    use(&SendJTAGShiftData);
    use(empty);
    use(fromBytes);
    use(fromVector);
    return 1;
}
