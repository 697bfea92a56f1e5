#pragma once

/// KivResource keeps a local cache of remote advertising resources. This header is all that a host
/// includes.
///
/// A host uses it in five steps, all on one queue, normally the main one:
///
///     // 1. Say where files are kept and where they come from, before the manager exists.
///     KivStorageService::setRootPath("/var/lib/app/cache");
///     KivAppConfiguration::sharedInstance()->setMainACSDomain("https://ads.example/files");
///     KivAppConfiguration::sharedInstance()->setReserveACSDomain("https://mirror.example/files");
///     // A configuration then cannot find out which other files lie on this machine.
///     KivResourceLookup::setRoots(std::vector<std::string>());
///
///     // 2. Take the manager. What earlier runs loaded is there at once, without a network.
///     auto manager = KivResourceManager::sharedInstance();
///
///     // 3. Listen. The observer is held weakly: keep it yourself.
///     auto observer = std::make_shared<MyObserver>();
///     manager->addObserver(observer);
///
///     // 4. Hand over a configuration, a text in JSON that the host has got from its own server,
///     // and let the event loop drain the main queue.
///     if (auto config = kiv::JSON::read(text)) manager->updateResourcesForConfig(*config);
///     kiv::DispatchQueue::main()->run();
///
///     // 5. Show what is loaded: copies, which carry the local paths of their files.
///     for (const auto& resource : manager->loadedResourcesWithType("banner")) show(*resource);
///
/// The kinds of resources are KivResourceStandard (an image banner), KivResourceVideo (a promotion
/// with icon and video) and KivResourceWeb (an HTML page); a resource of an engine that the
/// framework does not know is a plain KivResource without files.
///
/// Names of operations are spelled keyword by keyword: every inner colon of a name is a `_`, as in
/// loadResourceWithID_forConfig(resourceID, config).

#include "KivPlatform/AppConfiguration/KivAppConfiguration.h"        // IWYU pragma: export
#include "KivPlatform/Foundation/files/FileManager.h"                // IWYU pragma: export
#include "KivPlatform/Foundation/queues/DispatchQueue.h"             // IWYU pragma: export
#include "KivPlatform/Foundation/system/Bundle.h"                    // IWYU pragma: export
#include "KivPlatform/Foundation/system/SystemLog.h"                 // IWYU pragma: export
#include "KivPlatform/Foundation/text/ControlCharacters.h"           // IWYU pragma: export
#include "KivPlatform/Foundation/values/JSON.h"                      // IWYU pragma: export
#include "KivPlatform/Foundation/values/Result.h"                    // IWYU pragma: export
#include "KivPlatform/KivRESTService/KivRESTService.h"               // IWYU pragma: export
#include "KivPlatform/KivStorageService/KivStorageService.h"         // IWYU pragma: export
#include "KivResource/KivResourceCache.h"                            // IWYU pragma: export
#include "KivResource/KivResourceConstants.h"                        // IWYU pragma: export
#include "KivResource/KivResourceFactory.h"                          // IWYU pragma: export
#include "KivResource/KivResourceManager.h"                          // IWYU pragma: export
#include "KivResource/KivResourceManagerObserver.h"                  // IWYU pragma: export
#include "KivResource/KivResourceObject.h"                           // IWYU pragma: export
#include "KivResource/KivResourceRESTModule.h"                       // IWYU pragma: export
#include "KivResource/KivResourceStandard.h"                         // IWYU pragma: export
#include "KivResource/KivResourceStorageModule.h"                    // IWYU pragma: export
#include "KivResource/KivResourceVersion.h"                          // IWYU pragma: export
#include "KivResource/KivResourceVideo.h"                            // IWYU pragma: export
#include "KivResource/KivResourceWeb.h"                              // IWYU pragma: export
#include "KivResource/NSError+KivResource.h"                         // IWYU pragma: export
#include "KivResource/configuration/KivConfigurationCheck.h"         // IWYU pragma: export
#include "KivResource/configuration/KivConfigurationUpdater.h"       // IWYU pragma: export
#include "KivResource/files/KivResourceLease.h"                      // IWYU pragma: export
#include "KivResource/files/KivResourceLookup.h"                     // IWYU pragma: export
#include "KivResource/maintenance/KivResourceMaintenance.h"          // IWYU pragma: export
#include "KivResource/maintenance/KivResourceTrim.h"                 // IWYU pragma: export
#include "KivResource/passes/KivResourcePass.h"                      // IWYU pragma: export
#include "KivResource/passes/KivResourcePassReport.h"                // IWYU pragma: export
#include "KivResource/revalidation/KivResourceRevalidationReport.h"  // IWYU pragma: export
