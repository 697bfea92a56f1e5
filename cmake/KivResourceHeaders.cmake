# The public headers: what is installed, and what a host may include. They include the standard
# library and each other, nothing else; script/lint sees to it.

target_sources(KivResource PUBLIC FILE_SET HEADERS BASE_DIRS "${PROJECT_SOURCE_DIR}" FILES
  KivResource/KivResource.h
  KivResource/KivResourceConstants.h
  KivResource/KivResourceFactory.h
  KivResource/KivResourceList.h
  KivResource/KivResourceLookup.h
  KivResource/KivResourceManager.h
  KivResource/KivResourceManagerObserver.h
  KivResource/KivResourceObject.h
  KivResource/KivResourceRESTModule.h
  KivResource/KivResourceStandard.h
  KivResource/KivResourceStorageModule.h
  KivResource/KivResourceUpkeep.h
  KivResource/KivResourceVersion.h
  KivResource/KivResourceVideo.h
  KivResource/KivResourceWeb.h
  KivResource/NSError+KivResource.h
  Platform/AppConfiguration/KivAppConfiguration.h
  Platform/Foundation/Bundle.h
  Platform/Foundation/ControlCharacters.h
  Platform/Foundation/Data.h
  Platform/Foundation/DispatchQueue.h
  Platform/Foundation/Error.h
  Platform/Foundation/Export.h
  Platform/Foundation/FileManager.h
  Platform/Foundation/FileName.h
  Platform/Foundation/InstalledResources.h
  Platform/Foundation/JSON.h
  Platform/Foundation/Path.h
  Platform/Foundation/StringList.h
  Platform/Foundation/SystemLog.h
  Platform/Foundation/URL.h
  Platform/Foundation/URLRequest.h
  Platform/Foundation/Value.h
  Platform/GCDMulticastDelegate/GCDMulticastDelegate.h
  Platform/KivRESTService/KivRESTService.h
  Platform/KivRESTService/KivRESTServiceErrors.h
  Platform/KivRESTService/KivRESTServiceFigures.h
  Platform/KivRESTService/KivRESTServiceSettings.h
  Platform/KivRESTService/KivRESTServiceTask.h
  Platform/KivStorageService/ArchiveCeilings.h
  Platform/KivStorageService/KivStorageService.h
)

# Headers of the framework's own that no host includes: parts of the manager.
set(KIVRESOURCE_PRIVATE_HEADERS
  KivResource/KivResourceArchiveRemoval.h
  KivResource/KivResourceIndex.h
  KivResource/KivResourceListMerge.h
  KivResource/KivResourceManagerStep.h
  KivResource/KivResourcePendingRemovals.h
  KivResource/KivResourceSavedList.h
)
