// The command line: option table, parsing and validation, help, usage and
// the warning about options that had no effect.
#ifndef VRX_DRIVER_OPTIONS_H_
#define VRX_DRIVER_OPTIONS_H_

#include <stdint.h>

#include "common/run_state.h"
#include "types.h"

// The image file-name list that the options fill: one name of 256
// characters.
constexpr int kFwImageFileListCapacity = 1;
constexpr int kFwImageFileNameSize = 256;

enum eOptionIdentificationTag : int32_t {
  eOptAdvHelp = 0,
  eOptXml = 1,
  eOptFml = 2,
  eOptClear = 3,
  eOptDebugMsg = 4,
  eOptReserved5 = 5,   // no option text; named " [-d]" in the warning
  eOptForce = 6,
  eOptHelp = 7,
  eOptInput = 8,
  eOptLog = 9,
  eOptQuiet = 10,
  eOptReserved11 = 11,
  eOptVersion = 12,
  eOptUri = 13,
  eOptCipher = 14,
  eOptLan = 15,
  eOptHost = 16,
  eOptUser = 17,
  eOptPassword = 18,
  eOptRetry = 19,
  eOptInterval = 20,
  eOptDelay = 21,
  eOptEntity = 22,
  // Added after the original set; they change nothing on the BMC.
  eOptCheck = 23,
  eOptHistory = 24,
  eOptRecord = 25,
};

enum eOptionReturnCodeTag : int32_t {
  OPTION_VALID = 0,
  NO_OPTION = 1,
  OPTION_INVALID = 2,
  OPTION_DUPLICATE = 3,
  OPTION_NEEDS_DEPENDENCY = 4,
  OPTION_INSUFFICIENT = 5,
  PROPERTY_INVALID = 6,
  PROPERTY_INVALID_CHARACTER = 7,
  PROPERTY_INVALID_FORMAT = 8,
  PROPERTY_OUT_OF_RANGE = 9,
  PROPERTY_NOT_ALLOWED = 10,
  PROPERTY_REQUIRED = 11,
};

enum eHelpTypeTag : int32_t {
  eHelpNormal = 1,
  eHelpNote = 2,
  eHelpAdvanced = 4,
  eHelpUsage = 5,
};

struct sArgumentRuleTag {
  char achOption[32];
  eOptionIdentificationTag eIdentifier;
  int32_t i32ValueRule;   // 1 value required, 3 no value; 0 and 4 forbidden
  int32_t i32Spare;
};

struct sOptionPropertyTag {
  uint8_t u8Present;
  uint8_t u8HasValue;
};

struct sHelpTag {
  eHelpTypeTag eType;
  char achText[128];
};

extern const sArgumentRuleTag G_asArgumentRuleList[];
extern const sHelpTag G_asHelpList[];

// Flags set by the option parser and read by the driver and procedures.
extern uint8_t G_InputFileFlag;
extern uint8_t G_HostIPFlag;
extern uint8_t G_UserNameFlag;
extern uint8_t G_PassWordFlag;
extern uint8_t G_LanFlag;

// The option-flag module's singleton pair: clears every flag and property.
int CheckFlagsConstructor();
int CheckFlagsDestructor();

sOptionPropertyTag* GetOneOptionProerty(int id);
const char* GetOptionReturnCodeString(int code);

int ParseCommandArguments(int argc, char** argv, char** fileList,
                          int* fileCount);
int ReadValidateOneArgument(char* arg, char** fileList, int* fileCount,
                            char* logName);
int CheckOptionDependency(char* offender);
int SetFwUpdateByCommandArguments(int argc, char** argv, char** fileList,
                                  int* fileCount, char* logName);
void CheckOptionCombination();

// The modes the later options ask for, valid once the line was parsed.
bool CheckRequested();    // -check: the pre-flight check instead of an update
bool HistoryRequested();  // -history: the update history instead of a run
// -record=FILE: the file that gets the IPMI conversation, or "" without it.
const char* RecordFileName();

void DisplayHelpMessage(eHelpTypeTag type);
void DisplayOptionList(eHelpTypeTag type);
void DisplayUsage();
void DisplayUtilityHeader(bool withVersion);

#endif  // VRX_DRIVER_OPTIONS_H_
