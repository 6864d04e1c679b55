#pragma once

// What the commands about single files and directories print. Each gives the exit status.

#include "scan/command_call.h"

int DiagnoseReadProblemCommand(TqCommandCall& call);
int OpenFileExclusiveCommand(TqCommandCall& call);
int FileInfoCommand(TqCommandCall& call);
int DllInfoCommand(TqCommandCall& call);
int DirListCommand(TqCommandCall& call);
int DirListDetailCommand(TqCommandCall& call);
int CopyResourceForkCommand(TqCommandCall& call);
int GrepCommand(TqCommandCall& call);
int IgrepCommand(TqCommandCall& call);
int ExplainFileCommand(TqCommandCall& call);
int CheckCodeSignatureCommand(TqCommandCall& call);
