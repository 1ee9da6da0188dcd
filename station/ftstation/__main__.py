import sys

if sys.argv[1:2] == ["serve"]:
    from ftstation.serve import main
else:
    from ftstation.cli import main

sys.exit(main(sys.argv[1:]))
