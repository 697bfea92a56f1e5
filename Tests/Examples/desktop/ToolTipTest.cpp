#include <QTextDocument>

#include <gtest/gtest.h>

#include "Examples/desktop/ToolTip.h"

namespace {

/// What Qt shows of a tool tip.
QString shown(const QString& tip) {
  if (!Qt::mightBeRichText(tip)) return tip;
  QTextDocument document;
  document.setHtml(tip);
  return document.toPlainText();
}

}  // namespace

TEST(ToolTip, ShowsTheTextAsItIs) {
  for (const char* text : {"Fish & chips", "&amp;", "a < b", "<b>bold</b>", "<img src='file:///x'>",
                           "two\nlines", "two  spaces", "\"quotes\""})
    EXPECT_EQ(shown(plainToolTip(text)), QString(text));
}

TEST(ToolTip, IsEmptyForNoText) {
  EXPECT_TRUE(plainToolTip("").isEmpty());
}
