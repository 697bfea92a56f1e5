#include "ToolTip.h"

// Escaping alone would not do: without a tag Qt shows "&amp;" as it stands.
QString plainToolTip(const QString& text) {
  if (text.isEmpty()) return {};
  return "<span style='white-space: pre-wrap'>" + text.toHtmlEscaped() + "</span>";
}
