"""Shows banners in a window, those of earlier runs at once and new ones as soon as they are loaded.

    python3 banners.py DIRECTORY SERVER CONFIGURATION

DIRECTORY is where files are kept, SERVER the URL that they come from, and CONFIGURATION the path of
a configuration, such as ../content/first.json.
"""

import sys
import tkinter
import webbrowser

from kivresource import Session


class Banners(tkinter.Tk):
    def __init__(self, directory, server, configuration):
        super().__init__(className="Banners")
        self.buttons = {}
        self.session = Session(directory, main=server)
        self.tk.createfilehandler(self.session.descriptor(), tkinter.READABLE, self.receive)
        self.session.send({"call": "allLoadedResources"})
        self.session.send({"call": "updateResourcesForConfig", "config": configuration})

    def receive(self, *_):
        while line := self.session.receive(0):
            if "resources" in line:
                self.show(line["resources"])
            elif line.get("event") in ("didLoadResource", "didFinishLoading"):
                self.session.send({"call": "allLoadedResources"})
            else:
                print("failed:", line["error"], file=sys.stderr)

    def show(self, resources):
        while self.buttons:
            self.buttons.popitem()[1].destroy()
        for resource in resources:
            if resource["class"] == "KivResourceStandard":
                self.show_banner(resource)

    def show_banner(self, resource):
        try:
            image = tkinter.PhotoImage(master=self, file=resource["image"])
        except tkinter.TclError as error:  # the server may send anything
            print(f"{resource['name']} cannot be shown: {error}", file=sys.stderr)
            return
        button = tkinter.Button(self, image=image, command=lambda: follow(resource["marketLink"]))
        button.image = image  # Tk does not keep it
        button.pack()
        self.buttons[resource["resourceID"]] = button

    def destroy(self):
        self.tk.deletefilehandler(self.session.descriptor())
        self.session.close()
        super().destroy()


def follow(link):
    if link.startswith(("http://", "https://")):  # and nothing on this computer
        webbrowser.open(link)


if __name__ == "__main__":
    if len(sys.argv) != 4:
        sys.exit(__doc__)
    Banners(*sys.argv[1:]).mainloop()
