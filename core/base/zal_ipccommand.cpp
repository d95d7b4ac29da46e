// The module zal_ipccommand.
