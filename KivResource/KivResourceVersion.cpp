#include "KivResource/KivResourceVersion.h"

// The build passes the project's one version on to this file.
const double KivResourceVersionNumber = KIVRESOURCE_VERSION_NUMBER;
const char* const KivResourceVersionString = "KivResource " KIVRESOURCE_VERSION_TEXT;
