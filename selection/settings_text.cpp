#include "selection/settings_text.h"

#include "base/xml_snippets.h"

namespace TqInfoManager {
namespace {

struct DefaultFileSet {
  std::string_view name;
  std::string_view extensions;
};

// The repeated entries (xltx, t08) and the overlap of wma between documents and music are part of the default data.
constexpr DefaultFileSet kDefaultFileSets[] = {
    {"docs",
     "dic,dif,doc,dochtml,docmhtml,docm,docx,docxml,dot,dotx,dotxml,dpx,exc,fad,fdf,fphtml,gdb,gra,grd,htm,html,nick,"
     "nkz,odf,"
     "odt,one,pages,pdf,rtf,scp,sxw,txt,wma,wpd,wps,wtx,rwz,xml"},
    {"spreadsheets", "csv,mda,mdb,mde,numbers,odb,ods,qpw,sxc,wdb,wks,xlr,xls,xlsb,xlsm,xlsx,xltm,xltx,xlt,xltx,xlw"},
    {"presentations", "keynote,ppt,pot,pps,ppa,sxi,odp,pptx,pptm,ppsx,potx,potm"},
    {"financial", "abd,hcx,ibank,npc,qba,qbb,qbw,qdf,qdt,qel,qif,qmd,qph,qsd,qtx,t08,tax,t04,t05,t06,t07,t08,t09,tdb"},
    {"pictures",
     "apdb,ai,bmp,cr2,crw,dib,dng,emf,fppiclib,icl,icns,ico,icon,img,jfif,jpg,jpe,jpeg,jp2,gif,lrcat,mac,mrw,nef,odg,"
     "pef,pic,"
     "pict,pct,pcx,pdp,png,pnt,pntd,psd,qti,qtif,rle,svg,tif,tiff,wdp,wmd,wmf,xcf"},
    {"music", "aif,aifc,aiff,au,cda,flac,mp3,mid,midi,m4a,m4b,m4p,m4r,nmw,oga,ogg,rmi,snd,wav,wpl,wm,wma,wmx,wvx"},
    {"video",
     "asx,asf,avi,dv,dvr-ms,mov,m2v,m2ts,m4v,mfp,mkv,mlv,mp2,mp4,mpa,mpe,mpeg,mpg,mod,mpv2,mp2v,msdvd,mswmm,mts,ogv,qt,"
     "ram,rm,"
     "rmvb,swf,spd,vob,wmv"},
    {"email", "dbx,eml,emlx,emlxpart,mapimail,mbx,oab,ost,pab,pce,pst,wab,wab~,msf,toc"},
    {"zips", "bz2,cpgz,gz,lightspeedbackup,rar,sit,tar,tgz,tz,z,zip"},
    {"browserfavorites", "adr,url,webbookmark,webloc"},
    {"usercustom01", ""},
};

constexpr std::string_view kDefaultExcludedTypes =
    "wab~,vmc,vhd,vhdx,vdi,vo1,vo2,vsv,vud,iso,dmg,sparseimage,sys,cab,exe,msi,dll,dl_,wim,ost,o,qtch,log,ithmb,vmdk,"
    "vmem,vmsd,"
    "vmsn,vmss,vmx,vmxf,menudata,appicon,appinfo,pva,pvs,pvi,pvm,fdd,hds,drk,mem,nvram,hdd";

constexpr std::string_view kDefaultExcludedDirs[] = {"applications/",
                                                     "automount/",
                                                     "developer/",
                                                     "library/",
                                                     "private/",
                                                     "system/",
                                                     "bin/",
                                                     "dev/",
                                                     "etc/",
                                                     "net/",
                                                     "opt/",
                                                     "sbin/",
                                                     "usr/",
                                                     "backups.backupdb/",
                                                     ".mobilebackups/",
                                                     "home/"};

}  // namespace

TqString FilterLine(const TqDirFilter& filter) {
  return Joined("    <tqdirfilter dir=\"", TqFile::XmlEscaped(filter.dir), "\" whichfiles=\"",
                TqFile::XmlEscaped(filter.whichFiles), "\" /> \n");
}

TqString VolumeLine(const TqSelectedVolume& volume) {
  return Joined("    <tqvolume tqVolumeGuid=\"", TqFile::XmlEscaped(volume.vguid), "\" mountPointPath=\"",
                TqFile::XmlEscaped(volume.mountPoint), "\" />\n");
}

TqString MountPointsText(const std::vector<TqSelectedVolume>& volumes) {
  TqString joined;
  for (const TqSelectedVolume& volume : volumes) {
    if (!joined.IsEmpty()) joined.AppendChar(',');
    joined.Append(volume.mountPoint);
  }
  return joined;
}

TqString FoldedMountPoint(std::string_view mountPoint) {
  TqString folded = LowerCased(mountPoint);
  if (!folded.EndsWith("/")) folded.AppendChar('/');
  return folded;
}

std::vector<TqDirFilter> DefaultDirFilters(std::string_view mountPoint) {
  const TqString folded = FoldedMountPoint(mountPoint);
  std::vector<TqDirFilter> filters{{folded, "all"}};
  for (const std::string_view dir : kDefaultExcludedDirs) filters.push_back({Joined(folded, dir), "none"});
  return filters;
}

TqString DefaultTqInfoText(const std::vector<TqSelectedVolume>& volumes, const TqSelectedVolume& scratch,
                           std::string_view onlineHostname) {
  TqString text =
      Joined("<?xml version=\"1.0\" encoding=\"UTF-8\" ?>\n<tqinfo>\n\n", "<myidentity online_hostname=\"",
             TqFile::XmlEscaped(onlineHostname), "\" tqlogin=\"unspecified\" />\n\n",
             "<myprefs allow_network_tests=\"true\" use_time_machine_excludes=\"false\" show_help_tips=\"true\" "
             "numdays_warn_if_no_backup=\"7\" />\n\n",
             "<uilang tqui_locale=\"default\" />\n\n");
  for (const DefaultFileSet& set : kDefaultFileSets) {
    AppendAll(text, "<filesetdef filesetname=\"", set.name, "\" extensions=\"", set.extensions, "\" />\n");
  }
  AppendAll(text, "\n<smartwatch smartwatchfilesets=\"docs,spreadsheets,presentations,financial,pictures,music,video,",
            "browserfavorites\" />\n\n", "<globalexcludes excludefiletypes=\"", kDefaultExcludedTypes, "\" />\n\n",
            "<mountpoints mountpoints_to_watch=\"", TqFile::XmlEscaped(MountPointsText(volumes)), "\" />\n\n",
            "<scratch_drive scratch_vol_guid=\"", TqFile::XmlEscaped(scratch.vguid), "\" scratch_mountpoint=\"",
            TqFile::XmlEscaped(scratch.mountPoint), "\" />\n\n", "<hard_drives_to_backup>\n");
  for (const TqSelectedVolume& volume : volumes) text.Append(VolumeLine(volume));
  AppendAll(
      text, "</hard_drives_to_backup>\n\n",
      "<do_backup dst_type=\"tqdatacenter\" dst_fileformat=\"tqff\" max_filesize_mb=\"1000000000\" ",
      "backup_on_battery=\"true\" net_auto_throttle=\"true\" net_throttle=\"50\" num_backup_threads=\"1\" ",
      "backup_schedule_type=\"continuously\" backup_schedule_detail=\"none\" backup_schedule_end_hour=\"none\">\n");
  for (const TqSelectedVolume& volume : volumes) {
    for (const TqDirFilter& filter : DefaultDirFilters(volume.mountPoint)) text.Append(FilterLine(filter));
  }
  AppendAll(text, "</do_backup>  \n\n</tqinfo>\n");
  return text;
}

}  // namespace TqInfoManager
