// The module zal_tpl.
