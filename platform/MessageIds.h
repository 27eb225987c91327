// SPDX-License-Identifier: MIT
/* The identifiers of the messages the library posts, one name each, in the
 * order of their numbers. The texts live in catalog/tetherhostclient.msg;
 * each name says what its text reports. */
#ifndef TETHERHOST_PLATFORM_MESSAGEIDS_H
#define TETHERHOST_PLATFORM_MESSAGEIDS_H

namespace tetherhost::message {

inline constexpr const char* noServerStartingOne = "1001";
inline constexpr const char* serverRunningConnectingAgain = "1002";
inline constexpr const char* secondConnectionWithoutDescriptor = "1004";
inline constexpr const char* clientNameSendFailed = "1006";
inline constexpr const char* clientNameUnanswered = "1007";
// The server is polled with 8888 in place of the command.
inline constexpr const char* lockGuardedCommandWithheld = "1008";
inline constexpr const char* commandFrameSendFailed = "1009";
inline constexpr const char* commandFrameUnanswered = "1010";
// Shows the session lock flag as it stands after the release.
inline constexpr const char* lockReleased = "1012";
inline constexpr const char* unknownCommandNumber = "1013";
inline constexpr const char* textReplyRequestFailed = "1014";
inline constexpr const char* textReplyRequestSent = "1015";
inline constexpr const char* textReplyNotReceived = "1016";
inline constexpr const char* textReplyReceived = "1017";
inline constexpr const char* integerReplyRequestFailed = "1018";
inline constexpr const char* integerReplyRequestSent = "1019";
inline constexpr const char* integerReplyNotReceived = "1020";
inline constexpr const char* integerReplyReceived = "1021";
inline constexpr const char* listReplyRequestFailed = "1022";
inline constexpr const char* listReplyRequestSent = "1023";
inline constexpr const char* listReplyNotReceived = "1024";
inline constexpr const char* listReplyReceived = "1025";
inline constexpr const char* disconnectRefused = "1026";
inline constexpr const char* connectionShutdownFailed = "1027";
inline constexpr const char* disconnected = "1028";
inline constexpr const char* noLogFileNameGiven = "1029";
inline constexpr const char* noLogFileSet = "1032";
inline constexpr const char* logFileDetailEmpty = "1033";
inline constexpr const char* logFileAndDetail = "1034";
inline constexpr const char* debugAlreadyOn = "1035";
inline constexpr const char* debugAlreadyOff = "1036";
inline constexpr const char* genericShiftSendFailed = "1037";
inline constexpr const char* genericShiftReceiveFailed = "1038";
inline constexpr const char* jtagShiftSendFailed = "1039";
inline constexpr const char* jtagShiftReceiveFailed = "1040";
inline constexpr const char* genericShiftBlockSent = "1041";
inline constexpr const char* jtagShiftBlockSent = "1042";
inline constexpr const char* pumpDataSendFailed = "1043";
inline constexpr const char* pumpDataFrameSent = "1044";
inline constexpr const char* pumpDataReceiveFailed = "1045";
inline constexpr const char* sspiSendFailed = "1046";
// Shows the integer token, or the client name after the data block.
inline constexpr const char* sspiFrameSent = "1047";
inline constexpr const char* sspiReceiveFailed = "1048";
inline constexpr const char* i2cSendFailed = "1049";
inline constexpr const char* i2cFrameSent = "1050";
inline constexpr const char* i2cReceiveFailed = "1051";
inline constexpr const char* sharedAppsSendFailed = "1052";
inline constexpr const char* sharedAppsUnanswered = "1053";
inline constexpr const char* fractionSendFailed = "1054";
inline constexpr const char* fractionNotAcknowledged = "1055";
inline constexpr const char* stringArgumentSendFailed = "1056";
inline constexpr const char* stringArgumentSent = "1057";
inline constexpr const char* stringArgumentUnanswered = "1058";
inline constexpr const char* stringArgumentAcknowledged = "1059";
inline constexpr const char* integerArgumentSendFailed = "1060";
inline constexpr const char* integerArgumentSent = "1061";
inline constexpr const char* integerArgumentNotAcknowledged = "1062";
inline constexpr const char* integerArgumentAcknowledged = "1063";
inline constexpr const char* textArgumentSendFailed = "1064";
inline constexpr const char* textArgumentSent = "1065";
inline constexpr const char* textArgumentNotAcknowledged = "1066";
inline constexpr const char* textArgumentAcknowledged = "1067";
inline constexpr const char* headerTrailerArgumentSendFailed = "1068";
inline constexpr const char* headerTrailerArgumentSent = "1069";
inline constexpr const char* headerTrailerArgumentNotAcknowledged = "1070";
inline constexpr const char* headerTrailerArgumentAcknowledged = "1071";
inline constexpr const char* lockRequestSendFailed = "1073";
inline constexpr const char* lockRequestUnanswered = "1074";
inline constexpr const char* lockGranted = "1075";
inline constexpr const char* lockNotGranted = "1076";
inline constexpr const char* sendingStringArguments = "1077";
inline constexpr const char* stringArgumentsSent = "1078";
inline constexpr const char* sendingIntegerArguments = "1079";
inline constexpr const char* integerArgumentsSent = "1080";
inline constexpr const char* sendingTextArguments = "1081";
inline constexpr const char* textArgumentsSent = "1082";
inline constexpr const char* sendingHeaderTrailerArguments = "1083";
inline constexpr const char* headerTrailerArgumentsSent = "1084";
inline constexpr const char* lookingForServer = "1085";
inline constexpr const char* askingForLock = "1086";
inline constexpr const char* clientNameEmpty = "1087";
inline constexpr const char* clientValid = "1088";
inline constexpr const char* connectingToServer = "1089";
inline constexpr const char* socketCreated = "1090";
inline constexpr const char* serverAddressSet = "1091";
inline constexpr const char* connectedSettingLogFile = "1092";
inline constexpr const char* commandAnswered = "1093";
inline constexpr const char* readingTextReply = "1094";
inline constexpr const char* readingTextReplyAsResult = "1095";
inline constexpr const char* readingIntegerReply = "1096";
inline constexpr const char* readingListReply = "1097";
inline constexpr const char* disconnecting = "1098";
inline constexpr const char* settingLogFile = "1099";
inline constexpr const char* switchingDebugOn = "1100";
inline constexpr const char* switchingDebugOff = "1101";
inline constexpr const char* sendingGenericShiftArguments = "1102";
inline constexpr const char* sendingJtagShiftArguments = "1103";
inline constexpr const char* collectingScanData = "1104";
inline constexpr const char* noScanData = "1105";
inline constexpr const char* serverRefusedConnection = "1106";
inline constexpr const char* startingServer = "1108";
// Posted with the data too; the text shows only the client name.
inline constexpr const char* sendingDataBlock = "1110";
// Posted with the first data block too; the text shows only the client name.
inline constexpr const char* startingShift = "1111";
inline constexpr const char* sendingPumpData = "1112";
inline constexpr const char* sendingSspiTransfer = "1113";
inline constexpr const char* sendingI2cTransfer = "1114";
inline constexpr const char* sendingSharedApps = "1115";
inline constexpr const char* sharedAppsList = "1116";
inline constexpr const char* unknownJtagSubCommand = "2000";

}  // namespace tetherhost::message

#endif
