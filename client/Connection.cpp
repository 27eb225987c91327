// SPDX-License-Identifier: MIT
/* Session and connection: Client::Connect, which connects to the server on
 * 127.0.0.1:4001 (starting the server when none runs) and introduces the
 * client by name, the server reaper it installs, and Client::Disconnect. */
#include <arpa/inet.h>
#include <netinet/in.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>

#include <QByteArray>
#include <QDir>
#include <QString>

#include "Client.h"
#include "ClientUtils.h"
#include "platform/BaseSystem.h"
#include "platform/MessageIds.h"
#include "protocol/Commands.h"
#include "protocol/Frames.h"
#include "protocol/Status.h"
#include "wire/Wire.h"

namespace {

namespace wire = tetherhost::wire;
namespace protocol = tetherhost::protocol;
namespace status = tetherhost::protocol::status;
namespace message = tetherhost::message;

constexpr char serverAddress[] = "127.0.0.1";
constexpr int tcpProtocol = 6;
constexpr socklen_t serverAddressLength = 16;
constexpr char serverProgram[] = "tetherhost";
constexpr unsigned int serverStartWait = 5;

/* The server reaper: collects every finished child of the process, not only
 * the servers Connect starts. It stays installed for the life of the
 * process. errno is kept for the code the signal interrupted. */
void reapServers(int) {
    const int savedErrno = errno;
    int status;
    while (waitpid(-1, &status, WNOHANG) > 0) {
    }
    errno = savedErrno;
}

/* A TCP socket that the programs the host starts (the server among them)
 * do not inherit. */
int openServerSocket() { return socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, tcpProtocol); }

sockaddr_in serverSocketAddress() {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = inet_addr(serverAddress);
    address.sin_port = htons(protocol::serverPort);
    return address;
}

/* The server executable: "tetherhost" in the caller's directory when one is
 * named, otherwise in the directory of the running executable. Whether the
 * file exists is not tested: a missing one shows as a failed second attempt. */
QString serverPath(const char* serverDirectory) {
    QString path = BaseSystem::getBinaryPath().absolutePath();
    if (serverDirectory != nullptr && serverDirectory[0] != '\0') path = QString::fromLatin1(serverDirectory);
    path.append(QStringLiteral("/tetherhost"));
    return path;
}

/* Starts the server from `path` in a process group of its own and waits five
 * seconds for it to listen. A child whose exec fails is not ended: it returns
 * from here like the parent and goes on as a client of its own. */
void startServer(const QString& path) {
    const pid_t child = fork();
    if (child == 0) {
        setpgid(0, 0);
        const QByteArray localPath = path.toLocal8Bit();
        execlp(localPath.constData(), serverProgram, static_cast<char*>(nullptr));
        // Only reached when the exec failed. Signal 0 sends nothing: the
        // child is left running on purpose.
        kill(getpid(), 0);
    } else if (child > 0) {
        int status;
        waitpid(child, &status, WNOHANG);
    } else {
        std::puts("Fork() function failed.");
    }
    sleep(serverStartWait);
}

}  // namespace

int Client::Connect(char*, const char* requestedLogFile, const char* serverDirectory) {
    ClientUtils utils(debugFlag, logFile, clientName, logFileName);
    wire::FrameBuffer working;
    const char* name = clientName.c_str();
    PrintMessage(message::connectingToServer, name);

    // Creates the socket, fills in the address and connects: true when the
    // connection stands. A socket that cannot be created leaves -1 here.
    auto attempt = [&]() -> bool {
        clientSocket = openServerSocket();
        if (clientSocket == -1) return false;
        PrintMessage(message::socketCreated, name);
        const sockaddr_in address = serverSocketAddress();
        PrintMessage(message::serverAddressSet, name);
        return connect(clientSocket, reinterpret_cast<const sockaddr*>(&address), serverAddressLength) != -1;
    };
    auto socketFailed = [&]() {
        clientSocket = 0;
        return status::socketUnavailable;
    };

    if (!attempt()) {
        if (clientSocket == -1) return socketFailed();
        close(clientSocket);
        clientSocket = 0;
        PrintMessage(message::serverRefusedConnection, name);
        if (utils.DetectServer() != 0) {
            PrintMessage(message::serverRunningConnectingAgain, name);
        } else {
            PrintMessage(message::noServerStartingOne, name);
            const QString path = serverPath(serverDirectory);
            PrintMessage(message::startingServer, name);
            signal(SIGCHLD, reapServers);
            startServer(path);
        }
        if (attempt()) {
            // Cannot hold after a socket was created; kept as the last guard
            // before the descriptor is used.
            if (clientSocket == -1) {
                PrintMessage(message::secondConnectionWithoutDescriptor, name, name);
                SetClientStatus(status::noDescriptor);
                return status::noDescriptor;
            }
        } else {
            if (clientSocket == -1) return socketFailed();
            // A refused second attempt goes on with descriptor 0: the name's
            // send then fails there (descriptor 0 is normally no socket).
            close(clientSocket);
            clientSocket = 0;
        }
    }

    // From here on every socket call is recorded when TETHERHOST_RECORD
    // asks for it, the introduction included.
    wire::startRecording(clientSocket, name);
    // The introduction: the name and its NUL, answered by at least one byte
    // of any content.
    working.clear();
    working.setText(name);
    if (wire::failed(working.sendFrame(clientSocket))) {
        PrintMessage(message::clientNameSendFailed, working.text(), working.text());
        SetClientStatus(status::sendFailed);
        return status::sendFailed;
    }
    if (wire::failed(working.receive(clientSocket, protocol::frameSize))) {
        PrintMessage(message::clientNameUnanswered, working.text(), working.text());
        // Recorded as a failed receive, reported as a failed connection.
        SetClientStatus(status::receiveFailed);
        return status::sendFailed;
    }
    if (requestedLogFile != nullptr && requestedLogFile[0] != '\0') {
        PrintMessage(message::connectedSettingLogFile, name);
        Set_Log_File(requestedLogFile);
    }
    SetClientStatus(0);
    return 0;
}

int Client::Disconnect() {
    const char* name = clientName.c_str();
    PrintMessage(message::disconnecting, name);
    const int farewell = Send(protocol::command::farewell);
    // Only -1 is a refusal; Send's failures and any other reply go on to the
    // shutdown.
    wire::stopRecording(clientSocket);
    if (farewell == -1) {
        PrintMessage(message::disconnectRefused, name, name);
        close(clientSocket);
        SetClientStatus(status::farewellRefused);
        return status::farewellRefused;
    }
    if (shutdown(clientSocket, SHUT_RDWR) == -1) {
        PrintMessage(message::connectionShutdownFailed, name);
        close(clientSocket);
        SetClientStatus(status::shutdownFailed);
        return status::shutdownFailed;
    }
    close(clientSocket);
    PrintMessage(message::disconnected, name);
    return 0;
}
