import sys

from ftsim.cli import main

sys.exit(main(sys.argv[1:]))
