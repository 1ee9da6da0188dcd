// The simulated model-specific maker library: each device adds its own file here.
