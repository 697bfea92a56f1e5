#pragma once

#include <functional>
#include <gtk/gtk.h>
#include <string>

#include "CacheListener.h"

/// Opens an address of the web, or a local page, given as a URI. Tests set their own.
using Opener = std::function<void(const std::string& uri)>;

/// A label that wraps. The text is never markup. `style` is a style class, or nullptr.
GtkWidget* newLabel(const std::string& text, const char* style = nullptr);

/// A button that calls the function. `name` is the widget's name, by which tests find it.
GtkWidget* newButton(const char* name, const char* text, std::function<void()> clicked);

/// A view of the item, with its lease, which ends with the widget.
GtkWidget* newItemRow(const ShownItem& item, const Opener& open);

/// A failure with its tries.
GtkWidget* newFailureRow(const Failure& failure);

void removeChildren(GtkBox* box);
