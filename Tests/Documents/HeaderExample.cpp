// The example at the head of KivResource.h, as a host has it in a function of its own.

#include <KivResource/KivResource.h>
#include <memory>
#include <string>

struct MyObserver : KivResourceManagerObserver {};
void show(const KivResource& resource);
void useFramework(const std::string& text);

void useFramework(const std::string& text) {
#include "KivResourceExample.inc"
}
