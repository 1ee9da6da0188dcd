// The simulated maker library: each device of the phone adds its own file here.
