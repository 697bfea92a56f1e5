// Compiles the example at the top of KivResource.h in a function.

#include <KivResource/KivResource.h>
#include <memory>
#include <string>

struct MyObserver : KivResourceManagerObserver {};
void show(const KivResource& resource);
void useFramework(const std::string& text);

void useFramework(const std::string& text) {
#include "KivResourceExample.inc"
}
