import sys

from ftstation.cli import main

sys.exit(main(sys.argv[1:]))
