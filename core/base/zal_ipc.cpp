// The module zal_ipc.
