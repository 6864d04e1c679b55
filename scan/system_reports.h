#pragma once

// What the commands about the program, the client and the machine print. Each gives the exit status.

#include "scan/command_call.h"

int UsageCommand(TqCommandCall& call);
int VersionCommand(TqCommandCall& call);
int OsWithDetailCommand(TqCommandCall& call);
int Is64BitCommand(TqCommandCall& call);
int MergeExcludeRulesCommand(TqCommandCall& call);
int AttemptRunTransmitCommand(TqCommandCall& call);
int LogInstallEventCommand(TqCommandCall& call);
int CreateServicePermissionReportCommand(TqCommandCall& call);
int TimeCommand(TqCommandCall& call);
int PrintMemUsageCommand(TqCommandCall& call);
int PrintRamCommand(TqCommandCall& call);
int RetentionInfoCommand(TqCommandCall& call);
int FixPermissionsCommand(TqCommandCall& call);
int IsTranslatedProcessCommand(TqCommandCall& call);
int ArchStringCommand(TqCommandCall& call);
int LocaleInfoCommand(TqCommandCall& call);
