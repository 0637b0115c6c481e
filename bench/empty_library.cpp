// Nothing but its dependencies.
