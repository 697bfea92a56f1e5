#include "Widgets.h"

#include <utility>

namespace {

constexpr int gap = 12;       // pixels
constexpr int iconSize = 64;  // pixels

GtkBox* newBox(GtkOrientation orientation, int spacing) {
  return GTK_BOX(gtk_box_new(orientation, spacing));
}

GtkWidget* newPicture(const ShownItem& item, const char* name) {
  GtkWidget* const picture = gtk_picture_new_for_paintable(GDK_PAINTABLE(item.picture.get()));
  gtk_picture_set_alternative_text(GTK_PICTURE(picture), item.title.c_str());
  gtk_widget_set_name(picture, name);
  gtk_picture_set_content_fit(GTK_PICTURE(picture), GTK_CONTENT_FIT_SCALE_DOWN);
  gtk_widget_set_halign(picture, GTK_ALIGN_START);
  gtk_widget_set_valign(picture, GTK_ALIGN_START);
  return picture;
}

void appendButton(GtkBox* row, const char* name, const char* text, std::string uri,
                  const Opener& open) {
  GtkWidget* const button = newButton(name, text, [uri = std::move(uri), open] { open(uri); });
  gtk_widget_set_valign(button, GTK_ALIGN_CENTER);
  gtk_box_append(row, button);
}

std::string uriOf(const std::string& path) {
  char* const text = g_filename_to_uri(path.c_str(), nullptr, nullptr);
  std::string uri = text ? text : "";
  g_free(text);
  return uri;
}

}  // namespace

GtkWidget* newLabel(const std::string& text, const char* style) {
  GtkWidget* const label = gtk_label_new(nullptr);
  gtk_label_set_text(GTK_LABEL(label), text.c_str());
  gtk_label_set_wrap(GTK_LABEL(label), TRUE);
  gtk_label_set_wrap_mode(GTK_LABEL(label), PANGO_WRAP_WORD_CHAR);
  gtk_label_set_xalign(GTK_LABEL(label), 0);
  if (style) gtk_widget_add_css_class(label, style);
  return label;
}

GtkWidget* newButton(const char* name, const char* text, std::function<void()> clicked) {
  GtkWidget* const button = gtk_button_new_with_label(text);
  gtk_widget_set_name(button, name);
  using Function = std::function<void()>;
  g_signal_connect_data(
      button, "clicked",
      G_CALLBACK(+[](GtkButton*, gpointer data) { (*static_cast<Function*>(data))(); }),
      new Function(std::move(clicked)),
      [](gpointer data, GClosure*) { delete static_cast<Function*>(data); }, G_CONNECT_AFTER);
  return button;
}

GtkWidget* newItemRow(const ShownItem& item, const Opener& open) {
  GtkBox* const row = newBox(GTK_ORIENTATION_HORIZONTAL, gap);
  GtkBox* const texts = newBox(GTK_ORIENTATION_VERTICAL, gap / 4);
  gtk_widget_set_hexpand(GTK_WIDGET(texts), TRUE);
  gtk_widget_set_valign(GTK_WIDGET(texts), GTK_ALIGN_CENTER);
  if (item.kind == ShownItem::Kind::promotion) {
    GtkWidget* const icon = newPicture(item, "icon");
    gtk_widget_set_size_request(icon, iconSize, iconSize);
    gtk_widget_set_valign(icon, GTK_ALIGN_CENTER);
    gtk_box_append(row, icon);
  }
  gtk_box_append(texts, newLabel(item.title, "heading"));
  if (!item.details.empty()) gtk_box_append(texts, newLabel(item.details, "dim-label"));
  if (item.kind == ShownItem::Kind::banner) {
    gtk_box_append(texts, item.picture ? newPicture(item, "banner")
                                       : newLabel("This picture cannot be shown.", "dim-label"));
  }
  gtk_box_append(row, GTK_WIDGET(texts));
  if (!item.page.empty()) appendButton(row, "open-page", "Open page", uriOf(item.page), open);
  if (!item.link.empty()) appendButton(row, "open-link", "Open link", item.link, open);
  // The item has the lease.
  g_object_set_data_full(G_OBJECT(row), "item", new ShownItem(item),
                         [](gpointer data) { delete static_cast<ShownItem*>(data); });
  return GTK_WIDGET(row);
}

GtkWidget* newFailureRow(const Failure& failure) {
  GtkBox* const row = newBox(GTK_ORIENTATION_VERTICAL, 0);
  gtk_widget_set_name(GTK_WIDGET(row), "failure");
  gtk_box_append(row, newLabel(failure.what, "heading"));
  if (!failure.reason.empty()) gtk_box_append(row, newLabel(failure.reason));
  for (const std::string& tried : failure.tries)
    gtk_box_append(row, newLabel(tried, "dim-label"));
  return GTK_WIDGET(row);
}

void removeChildren(GtkBox* box) {
  while (GtkWidget* const child = gtk_widget_get_first_child(GTK_WIDGET(box)))
    gtk_box_remove(box, child);
}
