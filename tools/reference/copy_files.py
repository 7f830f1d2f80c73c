"""Copies the files that the pages link to beside them: copy_files.py FOLDER"""
import os
import shutil
import sys

from inputs import PAGES, read
from pages import files_linked_from

if __name__ == "__main__":
    for page in PAGES:
        for file in files_linked_from(read(page), page):
            target = os.path.join(sys.argv[1], "files", file)
            os.makedirs(os.path.dirname(target), exist_ok=True)
            shutil.copyfile(file, target)
