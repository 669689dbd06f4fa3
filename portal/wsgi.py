"""The WSGI entry point for gunicorn and other servers: gunicorn -w 4 --chdir portal wsgi:app"""

from halqportal import create_app

app = create_app()
