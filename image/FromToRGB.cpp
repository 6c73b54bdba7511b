// placeholder: replaced by the subsystem's implementation
