#pragma once

// What the commands about volumes print. Each gives the exit status.

#include "scan/command_call.h"

int VolumeInfoCommand(TqCommandCall& call);
int VolumeInfoFromFilenameCommand(TqCommandCall& call);
int CloneTqVolCommand(TqCommandCall& call);
int AssignVolumeGuidCommand(TqCommandCall& call);
int AssignVolumeGuidHexCommand(TqCommandCall& call);
int UpdateTqVolumesXmlCommand(TqCommandCall& call);
int UpdateTqDefconXmlCommand(TqCommandCall& call);
int PingDrivesCommand(TqCommandCall& call);
int QueryAttachedVolumesCommand(TqCommandCall& call);
int ListVolumesCommand(TqCommandCall& call);
int ListVolumesToFileCommand(TqCommandCall& call);
int ListVolumesDetailCommand(TqCommandCall& call);
int ListTimeMachineUuidsCommand(TqCommandCall& call);
