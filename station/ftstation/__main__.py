import sys

if sys.argv[1:2] == ["serve"]:
    from ftstation.serve import main
elif sys.argv[1:2] == ["report"]:
    from ftstation.report import main
elif sys.argv[1:2] in (["line-init"], ["upload"]):
    from ftstation.linecli import main
else:
    from ftstation.cli import main

sys.exit(main(sys.argv[1:]))
