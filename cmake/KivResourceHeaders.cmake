# The public headers, which are installed and which a host may include. They include the standard
# library and each other only; script/lint checks it.

target_sources(KivResource PUBLIC FILE_SET HEADERS BASE_DIRS "${PROJECT_SOURCE_DIR}" FILES
  KivResource/KivResource.h
  KivResource/KivResourceConstants.h
  KivResource/KivResourceFactory.h
  KivResource/KivResourceLease.h
  KivResource/KivResourceList.h
  KivResource/KivResourceLookup.h
  KivResource/KivResourceManager.h
  KivResource/KivResourceManagerObserver.h
  KivResource/KivResourceObject.h
  KivResource/KivResourcePass.h
  KivResource/KivResourcePassAwaiting.h
  KivResource/KivResourcePassReport.h
  KivResource/KivResourceRESTModule.h
  KivResource/KivResourceStandard.h
  KivResource/KivResourceStorageModule.h
  KivResource/KivResourceMaintenance.h
  KivResource/KivResourceVersion.h
  KivResource/KivResourceVideo.h
  KivResource/KivResourceWeb.h
  KivResource/NSError+KivResource.h
  KivPlatform/AppConfiguration/KivAppConfiguration.h
  KivPlatform/Foundation/system/Bundle.h
  KivPlatform/Foundation/text/ControlCharacters.h
  KivPlatform/Foundation/values/ChangeFlag.h
  KivPlatform/Foundation/values/Data.h
  KivPlatform/Foundation/queues/DispatchQueue.h
  KivPlatform/Foundation/values/Error.h
  KivPlatform/Foundation/Export.h
  KivPlatform/Foundation/Mutex.h
  KivPlatform/Foundation/files/FileManager.h
  KivPlatform/Foundation/files/FileName.h
  KivPlatform/Foundation/system/InstalledResources.h
  KivPlatform/Foundation/values/JSON.h
  KivPlatform/Foundation/files/Path.h
  KivPlatform/Foundation/values/Result.h
  KivPlatform/Foundation/values/StringList.h
  KivPlatform/Foundation/system/SystemLog.h
  KivPlatform/Foundation/values/URL.h
  KivPlatform/Foundation/values/Value.h
  KivPlatform/GCDMulticastDelegate/GCDMulticastDelegate.h
  KivPlatform/KivRESTService/KivRESTService.h
  KivPlatform/KivRESTService/KivRESTServiceErrors.h
  KivPlatform/KivRESTService/KivRESTServiceMetrics.h
  KivPlatform/KivRESTService/KivRESTServiceSettings.h
  KivPlatform/KivRESTService/KivRESTServiceTask.h
  KivPlatform/KivStorageService/ArchiveLimits.h
  KivPlatform/KivStorageService/ArchiveNames.h
  KivPlatform/KivStorageService/KivStorageService.h
  KivPlatform/KivStorageService/KivStorageServiceErrors.h
)

# Headers of the framework's own that no host includes: parts of the manager.
set(KIVRESOURCE_PRIVATE_HEADERS
  KivResource/KivResourceArchiveRemoval.h
  KivResource/KivResourceFileListing.h
  KivResource/KivResourceIndex.h
  KivResource/KivResourceListMerge.h
  KivResource/KivResourceManagerStep.h
  KivResource/KivResourcePassCollector.h
  KivResource/KivResourcePassReports.h
  KivResource/KivResourcePendingRemovals.h
  KivResource/KivResourceSavedList.h
)
