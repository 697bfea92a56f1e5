'use strict';

// The page of the window. It "shows" by printing.

module.exports = async function page({ ipcRenderer, close }) {
  const banners = new Map();

  ipcRenderer.on('cache:loaded', (event, banner) => banners.set(banner.id, banner));
  ipcRenderer.on('cache:failed', (event, banner, reason) => {
    console.log(`failed ${banner.name}: ${reason}`);
  });
  ipcRenderer.on('cache:problem', (event, reason) => console.log(`problem: ${reason}`));

  // What is in the cache is there at once; the update comes when it comes.
  for (const banner of await ipcRenderer.invoke('cache:resources')) banners.set(banner.id, banner);
  console.log(`${banners.size} at the start`);

  try {
    const { loaded, failed } = await ipcRenderer.invoke('cache:update');
    for (const { name, kind, file } of banners.values()) console.log(`shows ${name}: ${kind} ${file}`);
    console.log(`${loaded} loaded, ${failed} failed`);
  } catch (error) {
    console.log(`problem: ${error.message}`);
  }
  close();
};
